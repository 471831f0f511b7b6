#ifndef KIVR_SRC_CONVERSIONS_H
#define KIVR_SRC_CONVERSIONS_H

#include <cstdint>
#include <string>

#include "ProfileTypes.h"
#include "wds_v01.h"

/// Translates between the library's values and those of the data service. Pure functions that may
/// run on any thread and have a defined result for every input. They only log what they don't
/// know.
namespace kiv {

/// Unknown types count as 3GPP, with a log line.
TechType convertProfileType(wds_profile_type_enum_v01 type);

/// Unknown types give UNKNOWN, with a log line.
IPType convertPdnType(wds_profile_pdn_type_enum_v01 type);
IPType convertPdpType(wds_pdp_type_enum_v01 type);
IPType convertPdpType(wds_common_pdp_type_enum_v01 type);

/// The index is the low 8 bits of profileId; everything but Tech3gpp2 counts as 3GPP.
wds_profile_identifier_type_v01 convertToProfileIdentifier(TechType techType, int profileId);

/// One bit of a set of APN types; 0 for whatever is not exactly one known bit.
uint64_t convertToSingleRavApnType(ApnTypes type);
ApnTypes convertToSingleCommonApnType(uint64_t ravType);

/// A set of APN types. Bits without a counterpart are dropped.
uint64_t convertToRavApnTypeMask(uint32_t mask);
uint32_t convertToCommonApnTypeMask(uint64_t ravMask);

/// The home types make dual stack of UNKNOWN; the common type (roaming and override) makes 255,
/// "none", of it.
wds_profile_pdn_type_enum_v01 convertToRavProfilePdnType(IPType type);
wds_pdp_type_enum_v01 convertToRavPdpType(IPType type);
wds_common_pdp_type_enum_v01 convertToRavCommonPdpType(IPType type);

/// 3GPP: a mask of which the two low bits count.
wds_auth_pref_mask_v01 convertToRavAuthPref(AuthType type);
AuthType convertToAuthType(wds_auth_pref_mask_v01 preference);

/// 3GPP2: everything that is unknown counts as none.
wds_profile_auth_protocol_enum_v01 convertToRavAuthProtocol(AuthType type);
wds_pdn_level_auth_protocol_enum_v01 convertToRavPdnLevelAuthProtocol(AuthType type);
AuthType convertToAuthType(wds_profile_auth_protocol_enum_v01 protocol);

/// Lowers the ASCII letters, whatever the locale; all other bytes stay.
std::string convertToLower(std::string text);
constexpr char convertToLower(char byte) {
    return byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte + ('a' - 'A')) : byte;
}

}  // namespace kiv

#endif
