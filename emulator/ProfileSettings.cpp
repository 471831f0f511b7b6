#include "ProfileSettings.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <type_traits>

namespace kiv::emulator {
namespace {

using Settings = wds_profile_settings_type_v01;

constexpr SettingsMember describe(std::string_view name, size_t flag, size_t value, size_t size,
                                  SettingsMember::Technology technology, bool isText) {
    return {name, flag, value, size, technology, isText};
}

#define KIV_MEMBER(technology, name)                                            \
    describe(#name, offsetof(Settings, name##_valid), offsetof(Settings, name), \
             sizeof(Settings::name), SettingsMember::Technology::technology,    \
             std::is_array_v<decltype(Settings::name)>)

constexpr SettingsMember kMembers[] = {
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

}  // namespace

bool SettingsMember::isPresent(wds_profile_type_enum_v01 type, const Settings& settings) const {
    return belongsTo(type) && bytesOf(settings)[flag] != std::byte{0};
}

std::span<const std::byte> SettingsMember::used(const Settings& settings) const {
    const std::span bytes(bytesOf(settings) + value, size);
    const auto end = isText ? std::find(bytes.begin(), bytes.end(), std::byte{0}) : bytes.end();
    return {bytes.begin(), end};
}

void SettingsMember::set(Settings& settings, std::span<const std::byte> bytes) const {
    auto* const target = reinterpret_cast<std::byte*>(&settings);
    target[flag] = std::byte{1};
    std::fill(std::copy(bytes.begin(), bytes.end(), target + value), target + value + size,
              std::byte{0});
}

std::span<const SettingsMember> settingsMembers() { return kMembers; }

bool areTextsTerminated(wds_profile_type_enum_v01 type, const Settings& settings) {
    return std::all_of(std::begin(kMembers), std::end(kMembers), [&](const auto& member) {
        return !member.isText || !member.isPresent(type, settings) ||
               member.used(settings).size() < member.size;
    });
}

void mergeSettings(wds_profile_type_enum_v01 type, const Settings& change, Settings& stored) {
    for (const SettingsMember& member : kMembers) {
        if (member.isPresent(type, change)) {
            member.set(stored, member.used(change));
        }
    }
}

void forEachPresent(wds_profile_type_enum_v01 type, Settings& settings,
                    const std::function<void(const PresentMember&)>& action) {
    auto* const bytes = reinterpret_cast<std::byte*>(&settings);
    for (const SettingsMember& member : kMembers) {
        if (member.isPresent(type, settings)) {
            const bool isSecret = member.name.find("password") != std::string_view::npos;
            action(
                {member.name.data(), member.isText, isSecret, {bytes + member.value, member.size}});
        }
    }
}

}  // namespace kiv::emulator
