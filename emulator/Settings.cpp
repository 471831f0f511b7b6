#include "Settings.h"

#include <algorithm>
#include <array>
#include <bit>
#include <iterator>
#include <type_traits>

#include "Encoding.h"
#include "Json.h"

namespace kiv::emulator {
namespace {

constexpr Setting describe(std::string_view name, size_t flag, size_t place, size_t size,
                           Setting::Technology technology, bool isText) {
    const bool isSecret = name.find("password") != std::string_view::npos;
    return {name, flag, place, size, technology, isText, isSecret};
}

#define KIV_SETTING(technology, name)                                           \
    describe(#name, offsetof(Settings, name##_valid), offsetof(Settings, name), \
             sizeof(Settings::name), Setting::Technology::technology,           \
             std::is_array_v<decltype(Settings::name)>)

constexpr Setting kSettings[] = {
    KIV_SETTING(Both, apn_type_mask),
    KIV_SETTING(Both, clat_enabled),
    KIV_SETTING(Only3gpp, profile_name),
    KIV_SETTING(Only3gpp, apn_name),
    KIV_SETTING(Only3gpp, user_name),
    KIV_SETTING(Only3gpp, password),
    KIV_SETTING(Only3gpp, pdp_type),
    KIV_SETTING(Only3gpp, override_home_pdp_type),
    KIV_SETTING(Only3gpp, lte_roaming_pdp_type),
    KIV_SETTING(Only3gpp, umts_roaming_pdp_type),
    KIV_SETTING(Only3gpp, max_pdn_conn_per_block),
    KIV_SETTING(Only3gpp, max_pdn_conn_timer),
    KIV_SETTING(Only3gpp, pdn_req_wait_interval),
    KIV_SETTING(Only3gpp, support_emergency_calls),
    KIV_SETTING(Only3gpp, apn_disabled),
    KIV_SETTING(Only3gpp, auth_preference),
    KIV_SETTING(Only3gpp, apn_class),
    KIV_SETTING(Only3gpp2, apn_string_3gpp2),
    KIV_SETTING(Only3gpp2, user_id_3gpp2),
    KIV_SETTING(Only3gpp2, password_3gpp2),
    KIV_SETTING(Only3gpp2, pdn_level_user_id_3gpp2),
    KIV_SETTING(Only3gpp2, pdn_level_password_3gpp2),
    KIV_SETTING(Only3gpp2, pdn_type_3gpp2),
    KIV_SETTING(Only3gpp2, auth_protocol_3gpp2),
    KIV_SETTING(Only3gpp2, pdn_level_auth_protocol_3gpp2),
    KIV_SETTING(Only3gpp2, apn_class_3gpp2),
};
#undef KIV_SETTING

const std::byte* bytesOf(const Settings& settings) {
    return reinterpret_cast<const std::byte*>(&settings);
}

}  // namespace

bool Setting::isPresent(const Settings& settings) const {
    return bytesOf(settings)[flag] != std::byte{0};
}

std::span<const std::byte> Setting::value(const Settings& settings) const {
    const std::span bytes(bytesOf(settings) + place, size);
    const auto end = isText ? std::find(bytes.begin(), bytes.end(), std::byte{0}) : bytes.end();
    return {bytes.begin(), end};
}

void Setting::set(Settings& settings, std::span<const std::byte> bytes) const {
    auto* const target = reinterpret_cast<std::byte*>(&settings);
    target[flag] = std::byte{1};
    std::fill(std::copy(bytes.begin(), bytes.end(), target + place), target + place + size,
              std::byte{0});
}

JsonText Setting::written(const Settings& settings) const {
    const auto bytes = value(settings);
    const auto isPrintable = [](std::byte b) {
        return b >= std::byte{0x20} && b < std::byte{0x7f};
    };
    if (!isText) {
        return toNumber(bytes);
    }
    return std::all_of(bytes.begin(), bytes.end(), isPrintable)
               ? JsonText(toUtf8(bytes))
               : JsonText::object().add("hex", toHex(bytes));
}

void Setting::read(JsonValue& json, Settings& settings) const {
    if (!isText) {
        const std::array number{json.number(0, UINT64_MAX >> (64 - 8 * size))};
        static_assert(std::endian::native == std::endian::little);
        set(settings, std::as_bytes(std::span(number)).first(size));
        return;
    }
    std::vector<std::byte> bytes;
    if (json.isObject()) {
        json.object([&](JsonValue& object) { bytes = object.at("hex").bytes(); });
    } else {
        const auto text = std::as_bytes(std::span(json.text()));
        bytes.assign(text.begin(), text.end());
    }
    if (bytes.size() >= size || std::find(bytes.begin(), bytes.end(), std::byte{}) != bytes.end()) {
        json.refuse("not a text of at most " + std::to_string(size - 1) + " bytes");
    }
    set(settings, bytes);
}

std::string Setting::shown(const Settings& settings) const {
    const auto bytes = value(settings);
    return isText ? toUtf8(bytes) : std::to_string(toNumber(bytes));
}

std::span<const Setting> allSettings() { return kSettings; }

const Setting& findSetting(std::string_view name) {
    return *std::find_if(std::begin(kSettings), std::end(kSettings),
                         [name](const Setting& setting) { return setting.name == name; });
}

std::vector<ShownSetting> listSettings(const Profile* profile) {
    std::vector<ShownSetting> list;
    for (const Setting& setting : kSettings) {
        list.push_back({setting.name, setting.isSecret});
        if (profile && setting.belongsTo(profile->type) && setting.isPresent(profile->settings)) {
            list.back().text = setting.shown(profile->settings);
        }
    }
    return list;
}

bool areTextsTerminated(wds_profile_type_enum_v01 type, const Settings& settings) {
    return std::all_of(std::begin(kSettings), std::end(kSettings), [&](const Setting& setting) {
        return !setting.isText || !setting.belongsTo(type) || !setting.isPresent(settings) ||
               setting.value(settings).size() < setting.size;
    });
}

void mergeSettings(wds_profile_type_enum_v01 type, const Settings& change, Settings& stored) {
    for (const Setting& setting : kSettings) {
        if (setting.belongsTo(type) && setting.isPresent(change)) {
            setting.set(stored, setting.value(change));
        }
    }
}

}  // namespace kiv::emulator
