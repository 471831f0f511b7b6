#include "ProfileSettings.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <type_traits>

namespace kiv::emulator {
namespace {

using Settings = wds_profile_settings_type_v01;

enum class Technology { Both, Only3gpp, Only3gpp2 };

/// Where a member and its flag lie in the settings.
struct Member {
    Technology technology;
    size_t flag;
    size_t value;
    size_t size;
    bool isText;

    bool belongsTo(wds_profile_type_enum_v01 type) const {
        return technology == Technology::Both ||
               (technology == Technology::Only3gpp) == (type == WDS_PROFILE_TYPE_3GPP_V01);
    }
};

#define KIV_MEMBER(technology, name)                                                        \
    Member {                                                                                \
        Technology::technology, offsetof(Settings, name##_valid), offsetof(Settings, name), \
            sizeof(Settings::name), std::is_array_v<decltype(Settings::name)>               \
    }

constexpr Member kMembers[] = {
    KIV_MEMBER(Both, apn_type_mask),
    KIV_MEMBER(Both, clat_enabled),
    KIV_MEMBER(Only3gpp, profile_name),
    KIV_MEMBER(Only3gpp, apn_name),
    KIV_MEMBER(Only3gpp, user_name),
    KIV_MEMBER(Only3gpp, password),
    KIV_MEMBER(Only3gpp, pdp_type),
    KIV_MEMBER(Only3gpp, override_home_pdp_type),
    KIV_MEMBER(Only3gpp, lte_roaming_pdp_type),
    KIV_MEMBER(Only3gpp, umts_roaming_pdp_type),
    KIV_MEMBER(Only3gpp, max_pdn_conn_per_block),
    KIV_MEMBER(Only3gpp, max_pdn_conn_timer),
    KIV_MEMBER(Only3gpp, pdn_req_wait_interval),
    KIV_MEMBER(Only3gpp, support_emergency_calls),
    KIV_MEMBER(Only3gpp, apn_disabled),
    KIV_MEMBER(Only3gpp, auth_preference),
    KIV_MEMBER(Only3gpp, apn_class),
    KIV_MEMBER(Only3gpp2, apn_string_3gpp2),
    KIV_MEMBER(Only3gpp2, user_id_3gpp2),
    KIV_MEMBER(Only3gpp2, password_3gpp2),
    KIV_MEMBER(Only3gpp2, pdn_level_user_id_3gpp2),
    KIV_MEMBER(Only3gpp2, pdn_level_password_3gpp2),
    KIV_MEMBER(Only3gpp2, pdn_type_3gpp2),
    KIV_MEMBER(Only3gpp2, auth_protocol_3gpp2),
    KIV_MEMBER(Only3gpp2, pdn_level_auth_protocol_3gpp2),
    KIV_MEMBER(Only3gpp2, apn_class_3gpp2),
};
#undef KIV_MEMBER

const std::byte* bytesOf(const Settings& settings) {
    return reinterpret_cast<const std::byte*>(&settings);
}

bool isPresent(const Member& member, wds_profile_type_enum_v01 type, const Settings& settings) {
    return member.belongsTo(type) && bytesOf(settings)[member.flag] != std::byte{0};
}

/// How many bytes of the member count: of a text, those before its terminating zero.
size_t usedSize(const Member& member, const Settings& settings) {
    if (!member.isText) {
        return member.size;
    }
    const std::byte* value = bytesOf(settings) + member.value;
    return static_cast<size_t>(std::find(value, value + member.size, std::byte{0}) - value);
}

}  // namespace

bool areTextsTerminated(wds_profile_type_enum_v01 type, const Settings& settings) {
    return std::all_of(std::begin(kMembers), std::end(kMembers), [&](const Member& member) {
        return !member.isText || !isPresent(member, type, settings) ||
               usedSize(member, settings) < member.size;
    });
}

void mergeSettings(wds_profile_type_enum_v01 type, const Settings& change, Settings& stored) {
    auto* const target = reinterpret_cast<std::byte*>(&stored);
    for (const Member& member : kMembers) {
        if (isPresent(member, type, change)) {
            const size_t used = usedSize(member, change);
            std::byte* const value = target + member.value;
            target[member.flag] = std::byte{1};
            std::copy_n(bytesOf(change) + member.value, used, value);
            std::fill(value + used, value + member.size, std::byte{0});
        }
    }
}

}  // namespace kiv::emulator
