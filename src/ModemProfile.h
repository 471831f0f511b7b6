#ifndef KIVR_SRC_MODEMPROFILE_H
#define KIVR_SRC_MODEMPROFILE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "FilterProfileParams.h"
#include "IProfileKey.h"
#include "ModifyProfileParams.h"
#include "ProfileGlance.h"
#include "ProfileKey.h"
#include "ProfileParams.h"
#include "ProfileTypes.h"
#include "wds_v01.h"

namespace kiv {

/// The names of the 3GPP profiles that the library creates: the initial-attach profile, and the
/// others.
inline constexpr const char* kKivIAProfileName = "kiv_profile_ia";
inline constexpr const char* kKivProfileName = "kiv_profile";

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
/// For each setting X: getX returns the stored value (empty, 0 or false if absent), hasX tells
/// whether it is present, setX stores a value as it is. In particular setApnName neither cuts nor
/// lowers; all other ways in lower, and all but the modem's records cut.
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

    /// What get returns, into params that are still empty.
    virtual void readInto(ProfileParams& out) const = 0;

    /// The APN name of a filter in the form in which profiles keep theirs, cut and lowered: made
    /// once for a search through many.
    class NormalApnName {
    public:
        explicit NormalApnName(const FilterProfileParams& filter);
        /// Empty if the filter has none.
        std::string_view text() const { return {bytes.data(), length}; }

    private:
        std::array<char, WDS_APN_NAME_SIZE_V01 - 1> bytes;
        size_t length = 0;
    };

    /// match, with the filter's name.
    virtual bool matchNamed(const FilterProfileParams& filter, const NormalApnName& name) const;

    /// Lets through the summary of every profile that matches the filter, and of few others.
    static ProfileGlance glanceFor(const FilterProfileParams& filter);
    /// Of the settings as they are now: whoever keeps it asks again after every change.
    virtual uint64_t summary() const;

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
    void incRefCount();
    void decRefCount();

    std::string getApnName() const { return valueOf(apnName); }
    void setApnName(std::string value) { apnName = std::move(value); }
    bool hasApnName() const { return apnName.has_value(); }

    std::string getUserName() const { return valueOf(userName); }
    void setUserName(std::string value) { userName = std::move(value); }
    bool hasUserName() const { return userName.has_value(); }

    std::string getPassword() const { return valueOf(password); }
    void setPassword(std::string value) { password = std::move(value); }
    bool hasPassword() const { return password.has_value(); }

    AuthType getAuthType() const { return valueOf(authType); }
    void setAuthType(AuthType value) { authType = value; }
    bool hasAuthType() const { return authType.has_value(); }

    ApnClass getApnClass() const { return valueOf(apnClass); }
    void setApnClass(ApnClass value) { apnClass = value; }
    bool hasApnClass() const { return apnClass.has_value(); }

    /// In the modem's 64-bit layout, not as a set of ApnTypes.
    uint64_t getApnTypesMask() const { return valueOf(apnTypesMask); }
    void setApnTypesMask(uint64_t value) { apnTypesMask = value; }
    bool hasApnTypesMask() const { return apnTypesMask.has_value(); }

    bool getIsClatEnabled() const { return valueOf(isClatEnabled); }
    void setIsClatEnabled(bool value) { isClatEnabled = value; }
    bool hasIsClatEnabled() const { return isClatEnabled.has_value(); }

    /// PDP type (3GPP: in the home network) or PDN type of the modem profile.
    IPType getCommonIPType() const { return valueOf(commonIPType); }
    void setCommonIPType(IPType value) { commonIPType = value; }
    bool hasCommonIPType() const { return commonIPType.has_value(); }

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

    template <class Value>
    static Value valueOf(const std::optional<Value>& field) {
        return field.value_or(Value{});
    }

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

    bool matchApnName(const FilterProfileParams& filter, const NormalApnName& name) const;
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

    void apply(std::shared_ptr<ModemProfile> other) override;
    std::shared_ptr<ModemProfile> diff(const ModifyProfileParams& modification) const override;
    ProfileParams get() const override;
    wds_create_profile_req_msg_v01 constructAddRequest() const override;
    wds_modify_profile_settings_req_msg_v01 constructModifyRequest() const override;
    std::string dump() const override;
    void readInto(ProfileParams& out) const override;
    bool matchNamed(const FilterProfileParams& filter, const NormalApnName& name) const override;
    uint64_t summary() const override;
    /// The part of glanceFor that only this technology can fulfil.
    static void demandOf(const FilterProfileParams& filter, ProfileGlance& glance);

    /// Folds the client's home and roaming types into what the modem profile gets. When they
    /// differ the modem's home type admits both address families, and overrideHome keeps the
    /// client's choice. What params leaves out is taken from this profile. The caller passes
    /// empty values; those that stay empty are not to be set.
    void getNewIPTypes(const ProfileParams& params, std::optional<IPType>& home,
                       std::optional<IPType>& roam, std::optional<IPType>& overrideHome) const;

    std::string getProfileName() const { return valueOf(profileName); }
    void setProfileName(std::string value) { profileName = std::move(value); }
    bool hasProfileName() const { return profileName.has_value(); }

    /// The home type that the client asked for, where it differs from the roaming type.
    IPType getOverrideHomeIPType() const { return valueOf(overrideHomeIPType); }
    void setOverrideHomeIPType(IPType value) { overrideHomeIPType = value; }
    bool hasOverrideHomeIPType() const { return overrideHomeIPType.has_value(); }

    IPType getLteRoamIPType() const { return valueOf(lteRoamIPType); }
    void setLteRoamIPType(IPType value) { lteRoamIPType = value; }
    bool hasLteRoamIPType() const { return lteRoamIPType.has_value(); }

    IPType getUmtsRoamIPType() const { return valueOf(umtsRoamIPType); }
    void setUmtsRoamIPType(IPType value) { umtsRoamIPType = value; }
    bool hasUmtsRoamIPType() const { return umtsRoamIPType.has_value(); }

    int getMaxPdnsConnPerBlock() const { return valueOf(maxPdnsConnPerBlock); }
    void setMaxPdnsConnPerBlock(int value) { maxPdnsConnPerBlock = value; }
    bool hasMaxPdnsConnPerBlock() const { return maxPdnsConnPerBlock.has_value(); }

    int getMaxPdnConnTimer() const { return valueOf(maxPdnConnTimer); }
    void setMaxPdnConnTimer(int value) { maxPdnConnTimer = value; }
    bool hasMaxPdnConnTimer() const { return maxPdnConnTimer.has_value(); }

    int getPdnReqWaitInterval() const { return valueOf(pdnReqWaitInterval); }
    void setPdnReqWaitInterval(int value) { pdnReqWaitInterval = value; }
    bool hasPdnReqWaitInterval() const { return pdnReqWaitInterval.has_value(); }

    bool getIsApnDisabled() const { return valueOf(isApnDisabled); }
    void setIsApnDisabled(bool value) { isApnDisabled = value; }
    bool hasIsApnDisabled() const { return isApnDisabled.has_value(); }

    bool getIsEmergencySupported() const { return valueOf(isEmergencySupported); }
    void setIsEmergencySupported(bool value) { isEmergencySupported = value; }
    bool hasIsEmergencySupported() const { return isEmergencySupported.has_value(); }

private:
    /// The 3GPP settings that are a ProfileParams' own, unconverted.
    struct PlainSettings;

    bool isIAProfile() const;
    bool isKivProfile() const;
    /// The home type that the client asked for.
    std::optional<IPType> clientHomeIPType() const;
    bool matchHomeIPType(const FilterProfileParams& filter) const;
    bool matchRoamIPType(const FilterProfileParams& filter) const;
    void readSettings(const wds_profile_settings_type_v01& settings);
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

    std::shared_ptr<ModemProfile> diff(const ModifyProfileParams& modification) const override;
    ProfileParams get() const override;
    wds_create_profile_req_msg_v01 constructAddRequest() const override;
    wds_modify_profile_settings_req_msg_v01 constructModifyRequest() const override;
    void readInto(ProfileParams& out) const override;
    bool matchNamed(const FilterProfileParams& filter, const NormalApnName& name) const override;

private:
    void writeSettings(wds_profile_settings_type_v01& settings) const;
};

}  // namespace kiv

#endif
