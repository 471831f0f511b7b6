#ifndef KIVR_PROFILETYPES_H
#define KIVR_PROFILETYPES_H

#include <cstdint>
#include <iosfwd>

#include "KivApi.h"

/// The values that a profile's settings take. All numbers are fixed.
namespace kiv {

/// The technology family whose modem profile table a profile belongs to.
enum class TechType : int32_t { Tech3gpp = 0, Tech3gpp2 = 1 };

/// PDP type of a 3GPP profile (3GPP TS 23.060) or PDN type of a 3GPP2 profile. For the subset and
/// superset rules of a filter it is a set: V4V6 is V4 and V6; UNKNOWN is the empty set, which is a
/// subset of every type.
enum class IPType : int32_t { UNKNOWN = 0, V4 = 1, V6 = 2, V4V6 = 3 };

/// How the user authenticates towards the packet data network: RFC 1334 (PAP), RFC 1994 (CHAP).
enum class AuthType : int32_t { NONE = 0, PAP = 1, CHAP = 2, PAP_CHAP = 3 };

/// What the network operator uses the APN for.
enum class ApnClass : int32_t {
    IMS = 1,   ///< the IP multimedia subsystem: voice, messages (3GPP TS 23.228)
    ADMN = 2,  ///< the operator's administration of the device
    INET = 3,  ///< the internet
    APP = 4,   ///< the operator's applications
};

/// A set of APN types, one bit each. ProfileParams carries such a set as its 32-bit mask.
enum class ApnTypes : uint32_t {
    DEFAULT = 0x001,    ///< the internet
    MMS = 0x002,        ///< multimedia messages (3GPP TS 23.140)
    SUPL = 0x004,       ///< assisted positioning (OMA Secure User Plane Location)
    DUN = 0x008,        ///< tethering: dial-up networking for another device
    HIPRI = 0x010,      ///< the internet as with DEFAULT, also while Wi-Fi is the default network
    FOTA = 0x020,       ///< firmware updates over the air
    IMS = 0x040,        ///< the IP multimedia subsystem (3GPP TS 23.228)
    CBS = 0x080,        ///< carrier branded services
    IA = 0x100,         ///< initial attach (3GPP TS 23.401)
    EMERGENCY = 0x200,  ///< emergency calls (3GPP TS 23.167)
    MCX = 0x400,        ///< mission critical services (3GPP TS 23.280)
    XCAP = 0x800,       ///< settings of supplementary services, over XCAP (3GPP TS 24.623)
};

/// How loosely a FilterProfileParams compares, one bit each. Without a bit, its setting must be
/// equal.
enum class FilterMatchType : uint32_t {
    HomeIPSubset = 0x01,          ///< the filter's home IP type is a subset of the profile's
    RoamIPSubset = 0x02,          ///< the same for the roaming IP type
    ApnNameSubset = 0x04,         ///< the filter's APN name occurs inside the profile's
    ApnTypeBitmaskSubset = 0x08,  ///< every APN type of the filter is set on the profile
    HomeIPSuperset = 0x10,        ///< the profile's home IP type is a subset of the filter's
    RoamIPSuperset = 0x20,        ///< the same for the roaming IP type
};

/// The two ends of a refresh of the modem's stored configuration.
enum class PDCRefreshStatus : int32_t { Start = 0, Complete = 1 };

constexpr ApnTypes operator|(ApnTypes a, ApnTypes b) {
    return static_cast<ApnTypes>(static_cast<uint32_t>(a) | static_cast<uint32_t>(b));
}

constexpr FilterMatchType operator|(FilterMatchType a, FilterMatchType b) {
    return static_cast<FilterMatchType>(static_cast<uint32_t>(a) | static_cast<uint32_t>(b));
}

/// The bits of a set, as masks hold them.
constexpr uint32_t toMask(ApnTypes types) { return static_cast<uint32_t>(types); }
constexpr uint32_t toMask(FilterMatchType criteria) { return static_cast<uint32_t>(criteria); }

/// Prints the names in a set, each followed by "|". The empty set prints "NONE" (ApnTypes) or
/// "None" (FilterMatchType); bits without a name print nothing.
KIV_API std::ostream& operator<<(std::ostream& out, ApnTypes mask);
KIV_API std::ostream& operator<<(std::ostream& out, FilterMatchType mask);

}  // namespace kiv

#endif
