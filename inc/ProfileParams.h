#ifndef KIVR_PROFILEPARAMS_H
#define KIVR_PROFILEPARAMS_H

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "KivApi.h"
#include "ProfileTypes.h"

namespace kiv {

class ModemProfile;
class Modem3gppProfile;

/// The settings of a data-connection profile, in the words of the library's clients. Every
/// setting is optional: one that is absent is not given (don't care), never zero. A setting marked
/// as 3GPP only does nothing to a 3GPP2 profile.
///
/// Threads: a plain value; one object must not be changed on one thread while another uses it.
/// Ownership: copied freely. Nothing blocks.
/// Layout: a later version that adds a setting makes this class and its subclasses larger. Clients
/// must then be compiled anew with its headers.
///
/// For each setting X: setX stores a value and marks it present, hasX tells whether it is
/// present, getX returns the stored value (empty, 0 or false if absent). A setting becomes absent
/// again only by assignment of a whole ProfileParams.
///
/// Values out of range are not refused. The modem keeps a text up to its limit or to its first zero
/// byte, a counter or timer modulo 65536, and dual stack (V4V6) for a home IP type UNKNOWN.
/// getProfile and filters go by what the client asked for until the profile is read again: at the
/// next refresh, or when another party changes the profile. Only the APN name is cut at once.
class KIV_API ProfileParams {
public:
    ProfileParams() = default;
    ProfileParams(const ProfileParams&) = default;
    ProfileParams(ProfileParams&&) = default;
    ProfileParams& operator=(const ProfileParams&) = default;
    ProfileParams& operator=(ProfileParams&&) = default;
    virtual ~ProfileParams();

    /// One line of text: "Name=value," for each setting that is present, passwords included.
    virtual std::string dump() const;

    /// The profile bears one of the library's own profile names (3GPP only). False if absent.
    bool getIsKivProfile() const { return isKivProfile.value_or(false); }
    /// The profile is, or is to become, the library's initial-attach profile (3GPP only). False if
    /// absent.
    bool getIsIAProfile() const { return isIAProfile.value_or(false); }

    /// Access point name (3GPP TS 23.003). The library cuts it to its first 150 bytes, and keeps
    /// and reports its ASCII letters in lower case.
    std::string getApnName() const { return get(apnName); }
    void setApnName(std::string value) { apnName = std::move(value); }
    bool hasApnName() const { return apnName.has_value(); }

    /// User name for authentication: at most 127 bytes.
    std::string getUserName() const { return get(userName); }
    void setUserName(std::string value) { userName = std::move(value); }
    bool hasUserName() const { return userName.has_value(); }

    /// Password for authentication: at most 127 bytes. Never read from a 3GPP2 profile.
    std::string getPassword() const { return get(password); }
    void setPassword(std::string value) { password = std::move(value); }
    bool hasPassword() const { return password.has_value(); }

    AuthType getAuthType() const { return get(authType); }
    void setAuthType(AuthType value) { authType = value; }
    bool hasAuthType() const { return authType.has_value(); }

    /// PDP or PDN type in the home network.
    IPType getHomeIPType() const { return get(homeIPType); }
    void setHomeIPType(IPType value) { homeIPType = value; }
    bool hasHomeIPType() const { return homeIPType.has_value(); }

    /// PDP type when roaming, on LTE and on UMTS alike (3GPP only). getProfile reports none where
    /// the modem holds two that differ. UNKNOWN stands for none.
    IPType getRoamIPType() const { return get(roamIPType); }
    void setRoamIPType(IPType value) { roamIPType = value; }
    bool hasRoamIPType() const { return roamIPType.has_value(); }

    /// Set of ApnTypes. Types that the modem holds and that have no bit there are not reported, and
    /// are lost when the set is changed.
    uint32_t getApnTypesMask() const { return get(apnTypesMask); }
    void setApnTypesMask(uint32_t value) { apnTypesMask = value; }
    void setApnTypesMask(ApnTypes value) { apnTypesMask = toMask(value); }
    bool hasApnTypesMask() const { return apnTypesMask.has_value(); }

    ApnClass getApnClass() const { return get(apnClass); }
    void setApnClass(ApnClass value) { apnClass = value; }
    bool hasApnClass() const { return apnClass.has_value(); }

    /// 464XLAT (CLAT, RFC 6877) is enabled.
    bool getIsClatEnabled() const { return get(isClatEnabled); }
    void setIsClatEnabled(bool value) { isClatEnabled = value; }
    bool hasIsClatEnabled() const { return isClatEnabled.has_value(); }

    /// The profile may be used for emergency calls (3GPP only).
    bool getIsEmergencySupported() const { return get(isEmergencySupported); }
    void setIsEmergencySupported(bool value) { isEmergencySupported = value; }
    bool hasIsEmergencySupported() const { return isEmergencySupported.has_value(); }

    /// The modem must not use the APN (3GPP only).
    bool getIsApnDisabled() const { return get(isApnDisabled); }
    void setIsApnDisabled(bool value) { isApnDisabled = value; }
    bool hasIsApnDisabled() const { return isApnDisabled.has_value(); }

    /// How many PDN connections may be made in one time block: 0 to 65535 (3GPP only).
    int getMaxPdnsConnPerBlock() const { return get(maxPdnsConnPerBlock); }
    void setMaxPdnsConnPerBlock(int value) { maxPdnsConnPerBlock = value; }
    bool hasMaxPdnsConnPerBlock() const { return maxPdnsConnPerBlock.has_value(); }

    /// Length of that time block in seconds: 0 to 65535 (3GPP only).
    int getMaxPdnConnTimer() const { return get(maxPdnConnTimer); }
    void setMaxPdnConnTimer(int value) { maxPdnConnTimer = value; }
    bool hasMaxPdnConnTimer() const { return maxPdnConnTimer.has_value(); }

    /// Wait between two PDN connection requests in seconds: 0 to 65535 (3GPP only).
    int getPdnReqWaitInterval() const { return get(pdnReqWaitInterval); }
    void setPdnReqWaitInterval(int value) { pdnReqWaitInterval = value; }
    bool hasPdnReqWaitInterval() const { return pdnReqWaitInterval.has_value(); }

protected:
    template <class Value>
    static Value get(const std::optional<Value>& field) {
        return field.value_or(Value{});
    }

    std::optional<bool> isKivProfile;
    std::optional<bool> isIAProfile;

private:
    // The library's image of a profile, which compares the settings without copying them.
    friend class ModemProfile;
    friend class Modem3gppProfile;

    std::optional<std::string> apnName;
    std::optional<std::string> userName;
    std::optional<std::string> password;
    std::optional<AuthType> authType;
    std::optional<IPType> homeIPType;
    std::optional<IPType> roamIPType;
    std::optional<uint32_t> apnTypesMask;
    std::optional<ApnClass> apnClass;
    std::optional<bool> isClatEnabled;
    std::optional<bool> isEmergencySupported;
    std::optional<bool> isApnDisabled;
    std::optional<int> maxPdnsConnPerBlock;
    std::optional<int> maxPdnConnTimer;
    std::optional<int> pdnReqWaitInterval;
};

}  // namespace kiv

#endif
