#ifndef KIVR_SRC_MODEMPROFILE_H
#define KIVR_SRC_MODEMPROFILE_H

#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "FilterProfileParams.h"
#include "IProfileKey.h"
#include "ModifyProfileParams.h"
#include "ProfileKey.h"
#include "ProfileParams.h"
#include "ProfileTypes.h"
#include "wds_v01.h"

namespace kiv {

/// The names of the 3GPP profiles that the library creates: the initial-attach profile, and the
/// others.
inline constexpr const char* kKivIAProfileName = "kiv_profile_ia";
inline constexpr const char* kKivProfileName = "kiv_profile";

// NOLINTBEGIN(bugprone-macro-parentheses): types and names
/// getX, setX and hasX of an optional setting. get returns the stored value (empty, 0 or false if
/// absent), set stores a value as it is.
#define KIV_SETTING(Value, X, field)                         \
    Value get##X() const { return field.value_or(Value{}); } \
    void set##X(Value value) { field = std::move(value); }   \
    bool has##X() const { return field.has_value(); }
// NOLINTEND(bugprone-macro-parentheses)

/// The library's copy of one data-connection profile of the modem: its settings, how many client
/// keys hold it, and who wants to know when it goes. An absent setting is one that the modem
/// profile does not have.
///
/// Threads: none of its own and no locks; whoever shares a profile between threads guards it.
/// Ownership: always by std::shared_ptr. When the last owner lets go, the destructor calls the
/// expiration listeners whose key is still alive, on that thread. So drop profiles with no lock
/// held.
/// Blocking: nothing but the destructor's listeners may.
/// Re-entrancy: a listener may drop keys; it must not throw, and can't reach the dying profile.
///
/// setApnName neither cuts nor lowers; all other ways in lower, and all but the modem's records
/// cut.
class ModemProfile {
public:
    virtual ~ModemProfile();
    ModemProfile(const ModemProfile&) = delete;
    ModemProfile& operator=(const ModemProfile&) = delete;

    /// Whether every setting that the filter has is present here and fits.
    virtual bool match(const FilterProfileParams& filter) const;

    /// Takes over the settings that other has; an empty other has none.
    virtual void apply(std::shared_ptr<ModemProfile> other);

    /// A new profile of the same kind with just the settings that the modification changes; empty
    /// if it changes nothing.
    virtual std::shared_ptr<ModemProfile> diff(const ModifyProfileParams& modification) const = 0;

    /// The settings in the words of the clients, IP types as they asked for them.
    virtual ProfileParams get() const = 0;

    virtual wds_create_profile_req_msg_v01 constructAddRequest() const = 0;
    virtual wds_modify_profile_settings_req_msg_v01 constructModifyRequest() const = 0;

    /// One line of text, for the log.
    virtual std::string dump() const;

    /// Moves the texts that other has, which needs no memory; apply then copies the rest.
    void takeTexts(ModemProfile& other) noexcept;

    TechType getTechType() const { return techType; }

    /// The modem's profile index; -1 until the modem has given one.
    int getProfileId() const { return profileId; }
    void setProfileId(int value) { profileId = value; }

    bool getIsPersistent() const { return isPersistent; }
    void setIsPersistent(bool value) { isPersistent = value; }

    /// This library created the profile since it last read the modem's profiles.
    bool getIsKivCreated() const { return isKivCreated; }
    void setIsKivCreated(bool value) { isKivCreated = value; }

    /// How many client keys hold the profile. The count may go below 0; overflow aborts.
    int getRefCount() const { return refCount; }
    void incRefCount() { changeRefCount(1); }
    void decRefCount() { changeRefCount(-1); }

    KIV_SETTING(std::string, ApnName, apnName)
    KIV_SETTING(std::string, UserName, userName)
    KIV_SETTING(std::string, Password, password)
    KIV_SETTING(AuthType, AuthType, authType)
    KIV_SETTING(ApnClass, ApnClass, apnClass)
    /// In the modem's 64-bit layout, not as a set of ApnTypes.
    KIV_SETTING(uint64_t, ApnTypesMask, apnTypesMask)
    KIV_SETTING(bool, IsClatEnabled, isClatEnabled)
    /// PDP type (3GPP: in the home network) or PDN type of the modem profile.
    KIV_SETTING(IPType, CommonIPType, commonIPType)

    /// Has callback called in the destructor if key is alive then. Kept in order, each time anew.
    void registerExpirationListener(std::function<void()> callback, std::weak_ptr<IProfileKey> key);
    /// Forgets the listeners whose key is gone.
    void clearExpiredListeners();

    /// Whether all types of a set of ApnTypes are set here, or those and no others. An absent
    /// mask counts as empty; types without a bit in the modem's layout are not looked at.
    bool matchSubsetApnTypesMask(uint32_t mask) const;
    bool matchExactApnTypesMask(uint32_t mask) const;

    /// Copies the settings that both technologies read out alike, and that the profile has.
    void updateGetParameters(ProfileParams& out) const;

    /// Clear the whole message and fill what both technologies fill alike.
    void updateAddParameters(wds_create_profile_req_msg_v01& request) const;
    void updateModifyParameters(wds_modify_profile_settings_req_msg_v01& request) const;
    wds_profile_identifier_type_v01 constructProfileIdentifier() const;

protected:
    /// A profile to be created. IP types are left to the subclass.
    ModemProfile(TechType techType, const ProfileParams& params);
    /// A profile as read from the modem.
    ModemProfile(TechType techType, int profileId,
                 const wds_get_profile_settings_resp_msg_v01& response);

    /// Puts the changes to the settings of both technologies, but the IP types, into out. Sets
    /// changed if there are any, and never clears it.
    void updateDiffParameters(const ModifyProfileParams& modification, ProfileParams& out,
                              bool& changed) const;

    std::optional<std::string> apnName;
    std::optional<uint64_t> apnTypesMask;
    std::optional<IPType> commonIPType;
    std::optional<std::string> userName;
    std::optional<std::string> password;
    std::optional<AuthType> authType;
    std::optional<ApnClass> apnClass;
    std::optional<bool> isClatEnabled;

private:
    /// The settings that are a ProfileParams' own, unconverted.
    struct PlainSettings;

    void changeRefCount(int by);
    bool matchApnName(const FilterProfileParams& filter) const;
    bool matchApnTypesMask(const FilterProfileParams& filter) const;
    void writeCommonSettings(wds_profile_settings_type_v01& settings) const;

    const TechType techType;
    int profileId = -1;
    bool isPersistent = false;
    bool isKivCreated = false;
    int32_t refCount = 0;
    std::list<ExpirationListener> expirationListeners;
};

/// A profile of the modem's 3GPP table. See ModemProfile.
class Modem3gppProfile : public ModemProfile {
public:
    explicit Modem3gppProfile(const ProfileParams& params);
    Modem3gppProfile(int profileId, const wds_get_profile_settings_resp_msg_v01& response);

    bool match(const FilterProfileParams& filter) const override;
    void apply(std::shared_ptr<ModemProfile> other) override;
    std::shared_ptr<ModemProfile> diff(const ModifyProfileParams& modification) const override;
    ProfileParams get() const override;
    wds_create_profile_req_msg_v01 constructAddRequest() const override;
    wds_modify_profile_settings_req_msg_v01 constructModifyRequest() const override;
    std::string dump() const override;

    /// Folds the client's home and roaming types into what the modem profile gets. When they
    /// differ the modem's home type admits both address families, and overrideHome keeps the
    /// client's choice. What params leaves out is taken from this profile. The caller passes
    /// empty values; those that stay empty are not to be set.
    void getNewIPTypes(const ProfileParams& params, std::optional<IPType>& home,
                       std::optional<IPType>& roam, std::optional<IPType>& overrideHome) const;

    KIV_SETTING(std::string, ProfileName, profileName)
    /// The home type that the client asked for, where it differs from the roaming type.
    KIV_SETTING(IPType, OverrideHomeIPType, overrideHomeIPType)
    KIV_SETTING(IPType, LteRoamIPType, lteRoamIPType)
    KIV_SETTING(IPType, UmtsRoamIPType, umtsRoamIPType)
    KIV_SETTING(int, MaxPdnsConnPerBlock, maxPdnsConnPerBlock)
    KIV_SETTING(int, MaxPdnConnTimer, maxPdnConnTimer)
    KIV_SETTING(int, PdnReqWaitInterval, pdnReqWaitInterval)
    KIV_SETTING(bool, IsApnDisabled, isApnDisabled)
    KIV_SETTING(bool, IsEmergencySupported, isEmergencySupported)
private:
    /// The 3GPP settings that are a ProfileParams' own, unconverted.
    struct PlainSettings;

    bool isIAProfile() const;
    bool isKivProfile() const;
    /// The home type that the client asked for.
    std::optional<IPType> clientHomeIPType() const;
    bool matchHomeIPType(const FilterProfileParams& filter) const;
    bool matchRoamIPType(const FilterProfileParams& filter) const;
    void writeSettings(wds_profile_settings_type_v01& settings) const;

    std::optional<IPType> overrideHomeIPType;
    std::optional<IPType> lteRoamIPType;
    std::optional<IPType> umtsRoamIPType;
    std::optional<int> maxPdnsConnPerBlock;
    std::optional<int> maxPdnConnTimer;
    std::optional<int> pdnReqWaitInterval;
    std::optional<bool> isApnDisabled;
    std::optional<std::string> profileName;
    std::optional<bool> isEmergencySupported;
};

/// A profile of the modem's 3GPP2 table. See ModemProfile.
class Modem3gpp2Profile : public ModemProfile {
public:
    explicit Modem3gpp2Profile(const ProfileParams& params);
    Modem3gpp2Profile(int profileId, const wds_get_profile_settings_resp_msg_v01& response);

    bool match(const FilterProfileParams& filter) const override;
    std::shared_ptr<ModemProfile> diff(const ModifyProfileParams& modification) const override;
    ProfileParams get() const override;
    wds_create_profile_req_msg_v01 constructAddRequest() const override;
    wds_modify_profile_settings_req_msg_v01 constructModifyRequest() const override;

private:
    void writeSettings(wds_profile_settings_type_v01& settings) const;
};

}  // namespace kiv

#endif
