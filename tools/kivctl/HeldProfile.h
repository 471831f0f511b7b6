#ifndef TOOLS_KIVCTL_HELDPROFILE_H
#define TOOLS_KIVCTL_HELDPROFILE_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "FilterProfileParams.h"
#include "ModemEmulator.h"
#include "ProfileParams.h"

namespace kiv::kivctl {

/// The names that the library gives the profiles that it creates.
inline constexpr char kLibraryProfileName[] = "kiv_profile";
inline constexpr char kAttachProfileName[] = "kiv_profile_ia";

/// What the modem's table holds of one profile, or is expected to hold. A plain value.
struct HeldProfile {
    TechType techType = TechType::Tech3gpp;
    int id = 0;
    bool persistent = false;
    std::optional<std::string> name;
    std::optional<std::string> apnName;
    std::optional<std::string> userName;
    std::optional<std::string> password;
    std::optional<AuthType> authType;
    std::optional<IPType> homeType;  ///< PDP type, or PDN type of a 3GPP2 profile
    std::optional<IPType> overrideHomeType;
    std::optional<IPType> lteRoamType;
    std::optional<IPType> umtsRoamType;
    std::optional<uint64_t> typeMask;  ///< in the modem's bits
    std::optional<int> apnClass;
    std::optional<bool> clatEnabled;
    std::optional<bool> emergencySupported;
    std::optional<bool> apnDisabled;
    std::optional<int> maxConns;
    std::optional<int> maxConnsTime;
    std::optional<int> waitTime;

    bool operator==(const HeldProfile&) const = default;

    bool hasId(TechType tech, int profileId) const { return techType == tech && id == profileId; }
    bool isAttachProfile() const { return name == kAttachProfileName; }
    bool isLibraryProfile() const { return isAttachProfile() || name == kLibraryProfileName; }
    /// The home type that was asked for, whether or not it was folded with the roaming type.
    std::optional<IPType> effectiveHomeType() const;
};

/// All profiles of the modem: 3GPP, then 3GPP2, by id.
using ModemTable = std::vector<HeldProfile>;

HeldProfile heldProfile(const emulator::Profile& profile);
ModemTable readModemTable();

/// Null if there is none.
HeldProfile* findProfile(ModemTable& table, TechType techType, int id);
const HeldProfile* findProfile(const ModemTable& table, TechType techType, int id);

/// The settings that a client of the library must read of such a profile.
FilterProfileParams asClientReads(const HeldProfile& profile);

/// From one layout of the APN types to the other; bits without a counterpart are dropped.
uint64_t modemTypeMask(uint32_t libraryMask);
uint32_t libraryTypeMask(uint64_t modemMask);

/// One setting as text.
struct Setting {
    const char* label;
    std::optional<std::string> value;
    bool isSecret = false;
};

/// Always the same settings in the same order.
std::vector<Setting> clientSettings(const ProfileParams& params);
/// The same, after what only the modem knows.
std::vector<Setting> modemSettings(const HeldProfile& profile);

/// "3GPP 5".
std::string profileText(TechType techType, int id);

}  // namespace kiv::kivctl

#endif
