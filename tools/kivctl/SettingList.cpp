#include "SettingList.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "Text.h"

namespace kiv::kivctl {
namespace {

constexpr size_t kMostApnName = 150;
constexpr size_t kMostCredential = 127;
constexpr int kMostCount = 65535;
constexpr uint32_t kAllTypes = 0xfff;

/// What APN files call the APN types, in the order of their bits.
constexpr std::pair<std::string_view, ApnTypes> kTypeWords[] = {
    {"default", ApnTypes::DEFAULT}, {"mms", ApnTypes::MMS},
    {"supl", ApnTypes::SUPL},       {"dun", ApnTypes::DUN},
    {"hipri", ApnTypes::HIPRI},     {"fota", ApnTypes::FOTA},
    {"ims", ApnTypes::IMS},         {"cbs", ApnTypes::CBS},
    {"ia", ApnTypes::IA},           {"emergency", ApnTypes::EMERGENCY},
    {"mcx", ApnTypes::MCX},         {"xcap", ApnTypes::XCAP},
};

/// A word of a setting and its value; the first word of a value is the one that is shown.
using Word = std::pair<std::string_view, int>;
constexpr Word kIpWords[] = {{"IP", 1}, {"IPV6", 2}, {"IPV4V6", 3}, {"IPV4", 1},
                             {"V4", 1}, {"V6", 2},   {"V4V6", 3},   {"unknown", 0}};
constexpr Word kAuthWords[] = {{"none", 0},     {"PAP", 1},      {"CHAP", 2},
                               {"PAP/CHAP", 3}, {"PAP_CHAP", 3}, {"0", 0},
                               {"1", 1},        {"2", 2},        {"3", 3}};
constexpr Word kBoolWords[] = {{"yes", 1},   {"no", 0}, {"true", 1},
                               {"false", 0}, {"1", 1},  {"0", 0}};
constexpr Word kClassWords[] = {{"1", 1}, {"2", 2}, {"3", 3}, {"4", 4}};

template <size_t size>
std::optional<int> valueOf(const Word (&words)[size], std::string_view text) {
    const auto* found = std::find_if(std::begin(words), std::end(words), [&](const Word& word) {
        return lowered(word.first) == lowered(text);
    });
    return found == std::end(words) ? std::nullopt : std::optional(found->second);
}

template <auto& words>
std::optional<int> readWord(std::string_view text) {
    return valueOf(words, trimmed(text));
}

template <auto& words>
Json showWord(int value) {
    const auto* found = std::find_if(std::begin(words), std::end(words),
                                     [&](const Word& word) { return word.second == value; });
    return found == std::end(words) ? Json(std::to_string(value)) : Json(found->first);
}

template <size_t most>
std::optional<std::string> readText(std::string_view text) {
    return text.size() > most ? std::nullopt : std::optional<std::string>(text);
}

std::optional<std::string> readApnName(std::string_view text) {
    return readText<kMostApnName>(trimmed(text));
}

std::optional<int> readCount(std::string_view text) {
    return readNumber(trimmed(text), kMostCount);
}

Json showText(std::string text) { return text; }
Json showNumber(int number) { return number; }
Json showBool(int value) { return value != 0; }

/// One that is read and stored as a whole, or not at all.
template <auto set, auto read, class Value>
std::string_view parse(std::string_view text, ProfileParams& params) {
    const auto value = read(text);
    if (value) {
        (params.*set)(static_cast<Value>(*value));
    }
    return value ? std::string_view() : text;
}

template <auto has, auto get, auto show>
Json print(const ProfileParams& params) {
    if (!(params.*has)()) {
        return nullptr;
    }
    const auto value = (params.*get)();
    if constexpr (std::is_enum_v<decltype((params.*get)())>) {
        return show(static_cast<int>(value));
    } else {
        return show(value);
    }
}

Json showTypes(uint32_t mask) { return apnTypeText(mask); }

std::string_view parseNothing(std::string_view text, ProfileParams& /*params*/) { return text; }

Json printLibrary(const ProfileParams& params) {
    return params.getIsIAProfile()    ? Json("attach")
           : params.getIsKivProfile() ? Json("yes")
                                      : Json();
}

using P = ProfileParams;

constexpr Traits kPlain{};
constexpr Traits kText{.isText = true};
constexpr Traits kSecret{.isSecret = true, .isText = true};
constexpr Traits kTuning{.isTuning = true};
constexpr Traits kInverted{.isInverted = true};
constexpr Traits kInvertedTuning{.isInverted = true, .isTuning = true};

constexpr char kIps[] = "IP, IPV6 or IPV4V6";
constexpr char kYesNo[] = "true or false";
constexpr char kCounts[] = "a number from 0 to 65535";
constexpr char kCredentials[] = "at most 127 bytes";

#define KIV_SETTING(Name, Value, read, show) \
    parse<&P::set##Name, read, Value>, print<&P::has##Name, &P::get##Name, show>
#define KIV_TEXT(Name, read) KIV_SETTING(Name, std::string, read, showText)
#define KIV_WORD(Name, Value, words) KIV_SETTING(Name, Value, readWord<words>, showWord<words>)
#define KIV_FLAG(Name) KIV_SETTING(Name, bool, readWord<kBoolWords>, showBool)
#define KIV_COUNT(Name) KIV_SETTING(Name, int, readCount, showNumber)

const Setting kSettings[] = {
    {"apn", "apn", "at most 150 bytes", kText, KIV_TEXT(ApnName, readApnName)},
    {"types", "type", "an APN type", kPlain, parseTypes,
     print<&P::hasApnTypesMask, &P::getApnTypesMask, showTypes>},
    {"home", "protocol", kIps, kPlain, KIV_WORD(HomeIPType, IPType, kIpWords)},
    {"roaming", "roaming_protocol", kIps, kPlain, KIV_WORD(RoamIPType, IPType, kIpWords)},
    {"auth", "authtype", "a number from 0 to 3", kPlain, KIV_WORD(AuthType, AuthType, kAuthWords)},
    {"user", "user", kCredentials, kText, KIV_TEXT(UserName, readText<kMostCredential>)},
    {"password", "password", kCredentials, kSecret, KIV_TEXT(Password, readText<kMostCredential>)},
    {"class", "", "a number from 1 to 4", kPlain,
     KIV_SETTING(ApnClass, ApnClass, readWord<kClassWords>, showNumber)},
    {"clat", "skip_464xlat", kYesNo, kInvertedTuning, KIV_FLAG(IsClatEnabled)},
    {"emergency", "", kYesNo, kPlain, KIV_FLAG(IsEmergencySupported)},
    {"disabled", "carrier_enabled", kYesNo, kInverted, KIV_FLAG(IsApnDisabled)},
    {"max_conns", "max_conns", kCounts, kTuning, KIV_COUNT(MaxPdnsConnPerBlock)},
    {"max_conns_time", "max_conns_time", kCounts, kTuning, KIV_COUNT(MaxPdnConnTimer)},
    {"wait_time", "wait_time", kCounts, kTuning, KIV_COUNT(PdnReqWaitInterval)},
    {"library", "", "nothing", kPlain, parseNothing, printLibrary},
};
#undef KIV_COUNT
#undef KIV_FLAG
#undef KIV_WORD
#undef KIV_TEXT
#undef KIV_SETTING

}  // namespace

std::span<const Setting> allSettings() { return kSettings; }

std::string attributeValue(const Setting& setting, std::string_view text) {
    const std::string_view value = trimmed(text);
    if (setting.traits.isText) {
        return std::string(text);
    }
    if (value == "-1") {
        return {};
    }
    // The first two words are yes and no: that at 1 is the opposite of 1.
    const auto truth = setting.traits.isInverted ? valueOf(kBoolWords, value) : std::nullopt;
    return truth ? std::string(kBoolWords[*truth].first) : std::string(value);
}

std::string_view parseTypes(std::string_view text, ProfileParams& params) {
    uint32_t mask = 0;
    std::string_view unknown;
    for (const std::string_view& piece : split(text, ',')) {
        const std::string word = lowered(trimmed(piece));
        uint32_t types = word == "*" ? kAllTypes : 0;
        for (const auto& [known, type] : kTypeWords) {
            types |= known == word ? toMask(type) : 0;
        }
        mask |= types;
        unknown = unknown.empty() && types == 0 ? trimmed(piece) : unknown;
    }
    if (mask != 0) {
        params.setApnTypesMask(mask);
    }
    return unknown;
}

std::string apnTypeText(uint32_t mask) {
    std::string text;
    for (const auto& [word, type] : kTypeWords) {
        if ((mask & toMask(type)) != 0) {
            text += text.empty() ? "" : ",";
            text += word;
        }
    }
    return text.empty() ? "none" : text;
}

}  // namespace kiv::kivctl
