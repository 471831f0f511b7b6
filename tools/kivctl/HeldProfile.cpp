#include "HeldProfile.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>

#include "ApnTypeWords.h"

namespace kiv::kivctl {
namespace {

/// A library bit and the modem's bit for it.
constexpr std::pair<ApnTypes, uint64_t> kModemTypes[] = {
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

template <size_t size>
std::optional<std::string> text(uint8_t valid, const char (&bytes)[size]) {
    if (valid == 0) {
        return std::nullopt;
    }
    return std::string(bytes, strnlen(bytes, size));
}

template <class Value, class Held>
std::optional<Value> value(uint8_t valid, Held held) {
    return valid == 0 ? std::nullopt : std::optional(static_cast<Value>(held));
}

std::optional<IPType> pdpType(const wds_profile_settings_type_v01& s) {
    if (s.pdp_type_valid == 0) {
        return std::nullopt;
    }
    switch (s.pdp_type) {
        case WDS_PDP_TYPE_IPV4_V01:
            return IPType::V4;
        case WDS_PDP_TYPE_IPV6_V01:
            return IPType::V6;
        case WDS_PDP_TYPE_IPV4V6_V01:
            return IPType::V4V6;
        default:
            return IPType::UNKNOWN;
    }
}

IPType commonPdpType(wds_common_pdp_type_enum_v01 type) {
    switch (type) {
        case WDS_COMMON_PDP_TYPE_IPV4_V01:
            return IPType::V4;
        case WDS_COMMON_PDP_TYPE_IPV6_V01:
            return IPType::V6;
        case WDS_COMMON_PDP_TYPE_IPV4V6_V01:
            return IPType::V4V6;
        default:
            return IPType::UNKNOWN;
    }
}

/// A modem that says "none" is as one that says nothing.
std::optional<IPType> roamingType(uint8_t valid, wds_common_pdp_type_enum_v01 type) {
    if (valid == 0 || type == WDS_COMMON_PDP_TYPE_NONE_V01) {
        return std::nullopt;
    }
    return commonPdpType(type);
}

void read3gpp(const wds_profile_settings_type_v01& s, HeldProfile& held) {
    held.name = text(s.profile_name_valid, s.profile_name);
    held.apnName = text(s.apn_name_valid, s.apn_name);
    held.userName = text(s.user_name_valid, s.user_name);
    held.password = text(s.password_valid, s.password);
    held.authType = value<AuthType>(s.auth_preference_valid, s.auth_preference & 3);
    held.homeType = pdpType(s);
    if (s.override_home_pdp_type_valid != 0) {
        held.overrideHomeType = commonPdpType(s.override_home_pdp_type);
    }
    held.lteRoamType = roamingType(s.lte_roaming_pdp_type_valid, s.lte_roaming_pdp_type);
    held.umtsRoamType = roamingType(s.umts_roaming_pdp_type_valid, s.umts_roaming_pdp_type);
    held.apnClass = value<int>(s.apn_class_valid, s.apn_class);
    held.emergencySupported =
        value<bool>(s.support_emergency_calls_valid, s.support_emergency_calls != 0);
    held.apnDisabled = value<bool>(s.apn_disabled_valid, s.apn_disabled != 0);
    held.maxConns = value<int>(s.max_pdn_conn_per_block_valid, s.max_pdn_conn_per_block);
    held.maxConnsTime = value<int>(s.max_pdn_conn_timer_valid, s.max_pdn_conn_timer);
    held.waitTime = value<int>(s.pdn_req_wait_interval_valid, s.pdn_req_wait_interval);
}

void read3gpp2(const wds_profile_settings_type_v01& s, HeldProfile& held) {
    held.apnName = text(s.apn_string_3gpp2_valid, s.apn_string_3gpp2);
    held.userName = text(s.user_id_3gpp2_valid, s.user_id_3gpp2);
    held.password = text(s.password_3gpp2_valid, s.password_3gpp2);
    const int auth = static_cast<int>(s.auth_protocol_3gpp2);
    held.authType = value<AuthType>(s.auth_protocol_3gpp2_valid, auth >= 1 && auth <= 3 ? auth : 0);
    if (s.pdn_type_3gpp2_valid != 0) {
        // The numbers of the PDN types are those of the common PDP types, but for "unspecified".
        held.homeType = commonPdpType(static_cast<wds_common_pdp_type_enum_v01>(s.pdn_type_3gpp2));
    }
    held.apnClass = value<int>(s.apn_class_3gpp2_valid, s.apn_class_3gpp2);
}

std::string ipText(IPType type) {
    const char* const words[] = {"unknown", "IP", "IPV6", "IPV4V6"};
    const auto number = static_cast<size_t>(type);
    return number < std::size(words) ? words[number] : std::to_string(number);
}

std::string authText(AuthType type) {
    const char* const words[] = {"none", "PAP", "CHAP", "PAP/CHAP"};
    const auto number = static_cast<size_t>(type);
    return number < std::size(words) ? words[number] : std::to_string(number);
}

std::string typesText(uint32_t mask) { return mask == 0 ? "none" : apnTypeText(mask); }

std::string yesNo(bool value) { return value ? "yes" : "no"; }

template <class Value, class Format>
std::optional<std::string> shown(bool has, Value value, Format format) {
    return has ? std::optional<std::string>(format(value)) : std::nullopt;
}

std::optional<std::string> shownType(const std::optional<IPType>& type) {
    return shown(type.has_value(), type.value_or(IPType::UNKNOWN), ipText);
}

}  // namespace

std::optional<IPType> HeldProfile::effectiveHomeType() const {
    if (overrideHomeType && *overrideHomeType != IPType::UNKNOWN) {
        return overrideHomeType;
    }
    return homeType;
}

HeldProfile heldProfile(const emulator::Profile& profile) {
    HeldProfile held;
    held.id = profile.index;
    held.persistent = profile.persistent;
    const auto& settings = profile.settings;
    held.typeMask = value<uint64_t>(settings.apn_type_mask_valid, settings.apn_type_mask);
    held.clatEnabled = value<bool>(settings.clat_enabled_valid, settings.clat_enabled != 0);
    if (profile.type == WDS_PROFILE_TYPE_3GPP2_V01) {
        held.techType = TechType::Tech3gpp2;
        read3gpp2(settings, held);
    } else {
        read3gpp(settings, held);
    }
    return held;
}

ModemTable readModemTable() {
    ModemTable table;
    for (const auto type : {WDS_PROFILE_TYPE_3GPP_V01, WDS_PROFILE_TYPE_3GPP2_V01}) {
        for (const auto& profile : emulator::ModemEmulator::getInstance().profiles(type)) {
            table.push_back(heldProfile(profile));
        }
    }
    return table;
}

HeldProfile* findProfile(ModemTable& table, TechType techType, int id) {
    return const_cast<HeldProfile*>(findProfile(std::as_const(table), techType, id));
}

const HeldProfile* findProfile(const ModemTable& table, TechType techType, int id) {
    const auto found = std::find_if(table.begin(), table.end(), [&](const HeldProfile& profile) {
        return profile.hasId(techType, id);
    });
    return found == table.end() ? nullptr : &*found;
}

FilterProfileParams asClientReads(const HeldProfile& held) {
    FilterProfileParams params;
    const auto give = [&params](const auto& field, auto set) {
        if (field) {
            set(params, *field);
        }
    };
    using P = FilterProfileParams;
    give(held.apnName, [](P& p, const auto& v) { p.setApnName(lowered(v)); });
    give(held.userName, [](P& p, const auto& v) { p.setUserName(v); });
    give(held.authType, [](P& p, auto v) { p.setAuthType(v); });
    give(held.effectiveHomeType(), [](P& p, auto v) { p.setHomeIPType(v); });
    give(held.typeMask, [](P& p, auto v) { p.setApnTypesMask(libraryTypeMask(v)); });
    give(held.apnClass, [](P& p, auto v) { p.setApnClass(static_cast<ApnClass>(v)); });
    give(held.clatEnabled, [](P& p, auto v) { p.setIsClatEnabled(v); });
    if (held.techType == TechType::Tech3gpp2) {
        return params;  // the password of a 3GPP2 profile is never read
    }
    give(held.password, [](P& p, const auto& v) { p.setPassword(v); });
    if (held.lteRoamType == held.umtsRoamType) {
        give(held.lteRoamType, [](P& p, auto v) { p.setRoamIPType(v); });
    }
    give(held.maxConns, [](P& p, auto v) { p.setMaxPdnsConnPerBlock(v); });
    give(held.maxConnsTime, [](P& p, auto v) { p.setMaxPdnConnTimer(v); });
    give(held.waitTime, [](P& p, auto v) { p.setPdnReqWaitInterval(v); });
    give(held.apnDisabled, [](P& p, auto v) { p.setIsApnDisabled(v); });
    give(held.emergencySupported, [](P& p, auto v) { p.setIsEmergencySupported(v); });
    params.setFilterByIsKivProfile(held.isLibraryProfile());
    params.setFilterByIsIAProfile(held.isAttachProfile());
    return params;
}

uint64_t modemTypeMask(uint32_t libraryMask) {
    uint64_t mask = 0;
    for (const auto& [type, bit] : kModemTypes) {
        mask |= (libraryMask & toMask(type)) != 0 ? bit : 0;
    }
    return mask;
}

uint32_t libraryTypeMask(uint64_t modemMask) {
    uint32_t mask = 0;
    for (const auto& [type, bit] : kModemTypes) {
        mask |= (modemMask & bit) != 0 ? toMask(type) : 0;
    }
    return mask;
}

std::vector<Setting> clientSettings(const ProfileParams& p) {
    const auto same = [](std::string text) { return text; };
    const auto number = [](auto n) { return std::to_string(static_cast<int>(n)); };
    const char* const library = p.getIsIAProfile() ? "attach" : "yes";
    return {
        {"apn", shown(p.hasApnName(), p.getApnName(), same)},
        {"types", shown(p.hasApnTypesMask(), p.getApnTypesMask(), typesText)},
        {"home", shown(p.hasHomeIPType(), p.getHomeIPType(), ipText)},
        {"roaming", shown(p.hasRoamIPType(), p.getRoamIPType(), ipText)},
        {"auth", shown(p.hasAuthType(), p.getAuthType(), authText)},
        {"user", shown(p.hasUserName(), p.getUserName(), same)},
        {"password", shown(p.hasPassword(), p.getPassword(), same), true},
        {"class", shown(p.hasApnClass(), p.getApnClass(), number)},
        {"clat", shown(p.hasIsClatEnabled(), p.getIsClatEnabled(), yesNo)},
        {"emergency", shown(p.hasIsEmergencySupported(), p.getIsEmergencySupported(), yesNo)},
        {"disabled", shown(p.hasIsApnDisabled(), p.getIsApnDisabled(), yesNo)},
        {"max_conns", shown(p.hasMaxPdnsConnPerBlock(), p.getMaxPdnsConnPerBlock(), number)},
        {"max_conns_time", shown(p.hasMaxPdnConnTimer(), p.getMaxPdnConnTimer(), number)},
        {"wait_time", shown(p.hasPdnReqWaitInterval(), p.getPdnReqWaitInterval(), number)},
        {"library", shown(p.getIsKivProfile() || p.getIsIAProfile(), library, same)},
    };
}

std::vector<Setting> modemSettings(const HeldProfile& held) {
    std::vector<Setting> settings = {
        {"persistent", yesNo(held.persistent)},
        {"name", held.name},
        {"pdp_type", shownType(held.homeType)},
        {"override_home", shownType(held.overrideHomeType)},
        {"lte_roaming", shownType(held.lteRoamType)},
        {"umts_roaming", shownType(held.umtsRoamType)},
    };
    for (Setting& setting : clientSettings(asClientReads(held))) {
        settings.push_back(std::move(setting));
    }
    return settings;
}

std::string profileText(TechType techType, int id) {
    return (techType == TechType::Tech3gpp2 ? "3GPP2 " : "3GPP ") + std::to_string(id);
}

}  // namespace kiv::kivctl
