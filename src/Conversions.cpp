#include "Conversions.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "LogWrapper.h"

namespace kiv {

namespace {

struct ApnTypePair {
    ApnTypes type;
    uint64_t ravType;
};

/// The one correspondence of APN types. The two layouts differ.
constexpr ApnTypePair kApnTypes[] = {
    {ApnTypes::DEFAULT, WDS_APN_TYPE_MASK_DEFAULT_V01},
    {ApnTypes::MMS, WDS_APN_TYPE_MASK_MMS_V01},
    {ApnTypes::SUPL, WDS_APN_TYPE_MASK_SUPL_V01},
    {ApnTypes::DUN, WDS_APN_TYPE_MASK_DUN_V01},
    {ApnTypes::HIPRI, WDS_APN_TYPE_MASK_HIPRI_V01},
    {ApnTypes::FOTA, WDS_APN_TYPE_MASK_FOTA_V01},
    {ApnTypes::IMS, WDS_APN_TYPE_MASK_IMS_V01},
    {ApnTypes::CBS, WDS_APN_TYPE_MASK_CBS_V01},
    {ApnTypes::IA, WDS_APN_TYPE_MASK_IA_V01},
    {ApnTypes::EMERGENCY, WDS_APN_TYPE_MASK_EMERGENCY_V01},
    {ApnTypes::MCX, WDS_APN_TYPE_MASK_MCX_V01},
    {ApnTypes::XCAP, WDS_APN_TYPE_MASK_XCAP_V01},
};

/// The modem's numbers for V4, V6 and V4V6, in this order.
template <class RavType>
using IPTypes = std::array<RavType, 3>;
constexpr IPTypes<wds_profile_pdn_type_enum_v01> kPdnTypes = {
    WDS_PROFILE_PDN_TYPE_IPV4_V01, WDS_PROFILE_PDN_TYPE_IPV6_V01, WDS_PROFILE_PDN_TYPE_IPV4V6_V01};
constexpr IPTypes<wds_pdp_type_enum_v01> kPdpTypes = {WDS_PDP_TYPE_IPV4_V01, WDS_PDP_TYPE_IPV6_V01,
                                                      WDS_PDP_TYPE_IPV4V6_V01};
constexpr IPTypes<wds_common_pdp_type_enum_v01> kCommonPdpTypes = {
    WDS_COMMON_PDP_TYPE_IPV4_V01, WDS_COMMON_PDP_TYPE_IPV6_V01, WDS_COMMON_PDP_TYPE_IPV4V6_V01};

template <class RavType>
IPType toIPType(const IPTypes<RavType>& types, RavType type, const char* name) {
    const auto found = std::find(types.begin(), types.end(), type);
    if (found == types.end()) {
        KIV_LOG(DEBUG, "Unknown %s %d", name, static_cast<int32_t>(type));
        return IPType::UNKNOWN;
    }
    return static_cast<IPType>(found - types.begin() + 1);
}

/// Dual stack for a type that the modem has no number for.
template <class RavType>
RavType toRavType(const IPTypes<RavType>& types, IPType type) {
    const bool isKnown = type >= IPType::V4 && type <= IPType::V4V6;
    return isKnown ? types[static_cast<size_t>(type) - 1] : types.back();
}

}  // namespace

TechType convertProfileType(wds_profile_type_enum_v01 type) {
    switch (type) {
        case WDS_PROFILE_TYPE_3GPP_V01:
            return TechType::Tech3gpp;
        case WDS_PROFILE_TYPE_3GPP2_V01:
            return TechType::Tech3gpp2;
        default:
            KIV_LOG(DEBUG, "Unknown tech type %d", static_cast<int32_t>(type));
            return TechType::Tech3gpp;
    }
}

IPType convertPdnType(wds_profile_pdn_type_enum_v01 type) {
    if (type == WDS_PROFILE_PDN_TYPE_UNSPECIFIED_V01) {
        return IPType::UNKNOWN;
    }
    return toIPType(kPdnTypes, type, "profile_pdn_type_enum");
}

IPType convertPdpType(wds_pdp_type_enum_v01 type) {
    return toIPType(kPdpTypes, type, "pdp_type_enum");
}

IPType convertPdpType(wds_common_pdp_type_enum_v01 type) {
    return toIPType(kCommonPdpTypes, type, "pdp_type_enum");
}

wds_profile_identifier_type_v01 convertToProfileIdentifier(TechType techType, int profileId) {
    wds_profile_identifier_type_v01 identifier;
    std::memset(&identifier, 0, sizeof(identifier));  // It is sent with its padding.
    identifier.profile_type =
        techType == TechType::Tech3gpp2 ? WDS_PROFILE_TYPE_3GPP2_V01 : WDS_PROFILE_TYPE_3GPP_V01;
    identifier.profile_index = static_cast<uint8_t>(profileId);
    return identifier;
}

uint64_t convertToSingleRavApnType(ApnTypes type) {
    for (const ApnTypePair& pair : kApnTypes) {
        if (pair.type == type) {
            return pair.ravType;
        }
    }
    return 0;
}

ApnTypes convertToSingleCommonApnType(uint64_t ravType) {
    for (const ApnTypePair& pair : kApnTypes) {
        if (pair.ravType == ravType) {
            return pair.type;
        }
    }
    return ApnTypes{};
}

uint64_t convertToRavApnTypeMask(uint32_t mask) {
    uint64_t ravMask = 0;
    for (const ApnTypePair& pair : kApnTypes) {
        if ((mask & toMask(pair.type)) != 0) {
            ravMask |= pair.ravType;
        }
    }
    return ravMask;
}

uint32_t convertToCommonApnTypeMask(uint64_t ravMask) {
    uint32_t mask = 0;
    for (const ApnTypePair& pair : kApnTypes) {
        if ((ravMask & pair.ravType) != 0) {
            mask |= toMask(pair.type);
        }
    }
    return mask;
}

wds_profile_pdn_type_enum_v01 convertToRavProfilePdnType(IPType type) {
    return toRavType(kPdnTypes, type);
}

wds_pdp_type_enum_v01 convertToRavPdpType(IPType type) { return toRavType(kPdpTypes, type); }

wds_common_pdp_type_enum_v01 convertToRavCommonPdpType(IPType type) {
    return type == IPType::UNKNOWN ? WDS_COMMON_PDP_TYPE_NONE_V01
                                   : toRavType(kCommonPdpTypes, type);
}

wds_auth_pref_mask_v01 convertToRavAuthPref(AuthType type) {
    constexpr uint32_t kKnown = WDS_AUTH_PREF_PAP_V01 | WDS_AUTH_PREF_CHAP_V01;
    return static_cast<wds_auth_pref_mask_v01>(static_cast<uint32_t>(type) & kKnown);
}

AuthType convertToAuthType(wds_auth_pref_mask_v01 preference) {
    return static_cast<AuthType>(preference & (WDS_AUTH_PREF_PAP_V01 | WDS_AUTH_PREF_CHAP_V01));
}

// AuthType and both enumerations of protocols have the same numbers.

wds_profile_auth_protocol_enum_v01 convertToRavAuthProtocol(AuthType type) {
    const bool isKnown = type >= AuthType::PAP && type <= AuthType::PAP_CHAP;
    return isKnown ? static_cast<wds_profile_auth_protocol_enum_v01>(type)
                   : WDS_PROFILE_AUTH_PROTOCOL_NONE_V01;
}

wds_pdn_level_auth_protocol_enum_v01 convertToRavPdnLevelAuthProtocol(AuthType type) {
    return static_cast<wds_pdn_level_auth_protocol_enum_v01>(convertToRavAuthProtocol(type));
}

AuthType convertToAuthType(wds_profile_auth_protocol_enum_v01 protocol) {
    const auto type = static_cast<AuthType>(protocol);
    return convertToRavAuthProtocol(type) == protocol ? type : AuthType::NONE;
}

std::string convertToLower(std::string text) {
    for (char& byte : text) {
        byte = convertToLower(byte);
    }
    return text;
}

}  // namespace kiv
