#ifndef KIVR_UTIL_H
#define KIVR_UTIL_H

#include <atomic>
#include <cstdint>
#include <list>
#include <memory>
#include <string>

#include "IProfileKey.h"
#include "KivApi.h"
#include "Manager.h"
#include "ProfileParams.h"
#include "ProfileTypes.h"

namespace kiv {

/// The policies that pick or make the right profile for a purpose, and that bring the modem's
/// profiles into line with the carrier's configuration.
///
/// Threads: any, several at once. A policy goes by the setting of the moment at which it starts.
/// It is several Manager operations, between which others may run: two threads may each make a
/// profile for the same purpose.
/// Ownership: made and destroyed by the client at will; it holds nothing but a setting.
/// Blocking and re-entrancy: as the Manager operations of which each policy makes several.
///
/// Before the first refresh the cache is empty, so that a policy finds nothing and makes a double
/// of a profile that the modem has. Refresh first.
///
/// A profile that is neither found nor made shows as an empty key. A change that the modem refuses
/// does not show; Manager::getProfile tells. The reasons are in the log.
class KIV_API Util {
public:
    Util();
    ~Util();
    Util(const Util&) = delete;
    Util& operator=(const Util&) = delete;

    /// Whether a policy may change an existing modem profile to fit. False at first.
    void setProfileUpdateAllowed(bool allowed);

    /// The profile for a data call: an existing one of that APN (without an APN name, any of the
    /// technology), and for 3GPP2 of that user name, else a new one that is not persistent. If
    /// updates are allowed the existing one is changed to the given settings; otherwise the home IP
    /// type must fit.
    std::shared_ptr<IProfileKey> findOrCreateProfileForSetupDataCall(TechType techType,
                                                                     const ProfileParams& params);

    /// The 3GPP profile for an emergency call: an existing one that supports emergency calls, by
    /// preference of the given APN, as it is; else a new persistent one of type EMERGENCY.
    std::shared_ptr<IProfileKey> findOrCreateProfileForEmergencyDataCall(
        const ProfileParams& params);

    /// The 3GPP profile for the LTE initial attach (3GPP TS 23.401): the best existing one,
    /// changed to fit, else a new persistent one.
    std::shared_ptr<IProfileKey> findOrCreateProfileForLteAttach(const ProfileParams& params);

    /// Whether that 3GPP profile can serve as the attach profile for these settings.
    bool matchLteAttachProfileId(int profileId, const ProfileParams& params);

    /// Rewrites, or creates as persistent, the profile of each given APN class.
    void updateModemProfileByApnClass(const std::list<ProfileParams>& profiles3gpp,
                                      const std::list<ProfileParams>& profiles3gpp2);
    void updateModemProfileByApnClassAndTechType(const ProfileParams& params, TechType techType);

    /// Writes the APN types of the given profiles onto the modem profiles of the same APN. Types
    /// wanted for one IP type go to the profiles of that type; where there is none they move from
    /// V4 or V6 to V4V6, or the other way. If updates are allowed, every profile of an APN gets
    /// all types wanted for it. Creates nothing.
    void updateAPNTypeBitmaskOnModemProfile(const std::list<ProfileParams>& profiles);

    /// The steps of the above; masks are sets of ApnTypes and replace the profile's set.
    void handleCombinedProfileUpdate(uint32_t mask, std::string apnName);
    void handleProfileUpdateByTechType(TechType techType, uint32_t v4Mask, uint32_t v6Mask,
                                       uint32_t v4v6Mask, std::string apnName);
    /// True if at least one profile was found, whether or not the modem accepted the change.
    bool updateByIpType(TechType techType, IPType ipType, uint32_t mask, std::string apnName);

private:
    Manager* manager;
    std::atomic<bool> profileUpdateAllowed;
};

}  // namespace kiv

#endif
