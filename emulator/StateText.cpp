// The part of the state file that is about its text.

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <iterator>
#include <nlohmann/json.hpp>
#include <set>
#include <span>
#include <vector>

#include "Settings.h"
#include "StateFile.h"

namespace kiv::emulator {
namespace {

using nlohmann::ordered_json;
using Json = nlohmann::json;

constexpr char kFormat[] = "kivr modem state";
constexpr uint64_t kVersion = 1;
constexpr int kMostNested = 8;  ///< one more than there is
constexpr char kDigits[] = "0123456789abcdef";

bool isPrintable(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= 0x20 && c < 0x7f; });
}

std::string hexText(std::string_view text) {
    std::string hex;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        hex += {kDigits[byte >> 4], kDigits[byte & 0xf]};
    }
    return hex;
}

/// What a message can show of a text from the file.
std::string shown(std::string_view text) {
    constexpr size_t kMostShown = 160;
    std::string result(text.substr(0, kMostShown));
    std::replace_if(
        result.begin(), result.end(), [](char c) { return c < 0x20 || c >= 0x7f; }, '?');
    return text.size() > kMostShown ? result + "..." : result;
}

ordered_json valueOf(const Setting& member, const Settings& settings) {
    const auto bytes = member.value(settings);
    if (!member.isText) {
        uint64_t number = 0;
        static_assert(std::endian::native == std::endian::little);
        std::memcpy(&number, bytes.data(), bytes.size());
        return number;
    }
    const std::string text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    return isPrintable(text) ? ordered_json(text) : ordered_json{{"hex", hexText(text)}};
}

ordered_json describeTable(const ProfileTable& table) {
    ordered_json profiles = ordered_json::array();
    for (const auto& [index, profile] : table.all()) {
        ordered_json settings = ordered_json::object();
        for (const Setting& member : allSettings()) {
            if (member.belongsTo(profile.type) && member.isPresent(profile.settings)) {
                settings[std::string(member.name)] = valueOf(member, profile.settings);
            }
        }
        profiles.push_back(
            {{"index", index}, {"persistent", profile.persistent}, {"settings", settings}});
    }
    return {{"capacity", table.getCapacity()}, {"profiles", profiles}};
}

/// Goes through the text and leaves behind how far it got, which the parser does not tell.
struct WatchedText {
    using difference_type = ptrdiff_t;
    using value_type = char;
    using pointer = const char*;
    using reference = const char&;
    using iterator_category = std::input_iterator_tag;

    reference operator*() const { return *place; }
    WatchedText& operator++() {
        *reached = ++place;
        return *this;
    }
    bool operator==(const WatchedText& other) const { return place == other.place; }
    bool operator!=(const WatchedText& other) const { return place != other.place; }

    const char* place;
    const char** reached;
};

/// Reads the JSON, and refuses keys that appear twice, of which the parser would keep one.
class TextParser {
public:
    TextParser(const std::string& path, std::string_view text)
        : path(path), text(text), reached(text.data()) {}

    Json run() {
        try {
            return Json::parse(WatchedText{text.data(), &reached},
                               WatchedText{text.data() + text.size(), &reached},
                               [this](int depth, Json::parse_event_t event, const Json& parsed) {
                                   check(depth, event, parsed);
                                   return true;
                               });
        } catch (const Json::exception& error) {
            std::string_view what = error.what();
            const size_t detail = what.find(": ");
            what.remove_prefix(detail == std::string_view::npos ? 0 : detail + 2);
            refuse(shown(what));
        }
    }

private:
    void check(int depth, Json::parse_event_t event, const Json& parsed) {
        if (depth > kMostNested) {
            refuse("nested too deeply");
        }
        if (event == Json::parse_event_t::object_start) {
            keys.emplace_back();
        } else if (event == Json::parse_event_t::object_end) {
            keys.pop_back();
        } else if (event == Json::parse_event_t::key) {
            const auto& key = parsed.get_ref<const std::string&>();
            if (!keys.back().insert(key).second) {
                refuse("'" + shown(key) + "' appears twice");
            }
        }
    }

    [[noreturn]] void refuse(const std::string& what) const {
        const std::string_view read = text.substr(0, static_cast<size_t>(reached - text.data()));
        const auto line = 1 + std::count(read.begin(), read.end(), '\n');
        const size_t column = read.size() - (read.rfind('\n') + 1);
        throw StateFileError(path + ":" + std::to_string(line) + ":" + std::to_string(column) +
                             ": " + what);
    }

    const std::string& path;
    const std::string_view text;
    const char* reached;
    std::vector<std::set<std::string>> keys;  ///< of the objects that are open
};

/// A value in the file, with its place, such as /tables/3gpp/capacity.
class Value {
public:
    Value(const std::string& path, const Json& json, std::string place = "")
        : path(path), json(json), place(std::move(place)) {}

    [[noreturn]] void refuse(const std::string& what) const {
        throw StateFileError(path + ": " + (place.empty() ? "/" : place) + ": " + what);
    }

    /// A member of an object.
    Value at(const std::string& key) const {
        requireObject();
        const auto found = json.find(key);
        if (found == json.end()) {
            refuse("'" + key + "' is missing");
        }
        return {path, *found, place + "/" + key};
    }

    template <class Keys>
    void allowOnly(const Keys& keys) const {
        requireObject();
        for (const auto& item : json.items()) {
            if (std::find(std::begin(keys), std::end(keys), item.key()) == std::end(keys)) {
                refuse("'" + shown(item.key()) + "' is unknown");
            }
        }
    }

    std::vector<Value> elements() const {
        if (!json.is_array()) {
            refuse("not a list");
        }
        std::vector<Value> values;
        for (size_t i = 0; i < json.size(); ++i) {
            values.emplace_back(path, json[i], place + "/" + std::to_string(i));
        }
        return values;
    }

    bool has(const std::string& key) const { return json.contains(key); }

    uint64_t number(uint64_t least, uint64_t most) const {
        if (!json.is_number_unsigned()) {
            refuse("not a whole number from 0");
        }
        const auto value = json.get<uint64_t>();
        if (value < least || value > most) {
            refuse(std::to_string(value) + " is not from " + std::to_string(least) + " to " +
                   std::to_string(most));
        }
        return value;
    }

    bool flag() const {
        if (!json.is_boolean()) {
            refuse("neither true nor false");
        }
        return json.get<bool>();
    }

    const std::string& string() const {
        if (!json.is_string()) {
            refuse("not a text");
        }
        return json.get_ref<const std::string&>();
    }

    /// A text that may be given in hexadecimal digits.
    std::string text(size_t most) const {
        std::string text = json.is_object() ? decoded() : string();
        if (text.size() > most) {
            refuse(std::to_string(text.size()) + " bytes are more than " + std::to_string(most));
        }
        if (text.find('\0') != std::string::npos) {
            refuse("has a zero byte in it");
        }
        return text;
    }

private:
    void requireObject() const {
        if (!json.is_object()) {
            refuse("not an object");
        }
    }

    std::string decoded() const {
        allowOnly(std::array{"hex"});
        const std::string& digits = at("hex").string();
        const auto digit = [&](size_t i) {
            return static_cast<unsigned>(std::find(kDigits, kDigits + 16, digits[i]) - kDigits);
        };
        std::string text;
        for (size_t i = 0; i + 1 < digits.size(); i += 2) {
            if (digit(i) > 0xf || digit(i + 1) > 0xf) {
                break;
            }
            text += static_cast<char>(digit(i) << 4 | digit(i + 1));
        }
        if (2 * text.size() != digits.size()) {
            at("hex").refuse("not pairs of the digits 0-9 and a-f");
        }
        return text;
    }

    const std::string& path;
    const Json& json;
    std::string place;
};

Settings readSettings(wds_profile_type_enum_v01 type, const Value& value) {
    std::vector<std::string_view> names;
    for (const Setting& member : allSettings()) {
        if (member.belongsTo(type)) {
            names.push_back(member.name);
        }
    }
    value.allowOnly(names);
    Settings settings{};
    for (const Setting& member : allSettings()) {
        const std::string name(member.name);
        if (!value.has(name)) {
            continue;
        }
        if (member.isText) {
            const std::string text = value.at(name).text(member.size - 1);
            member.set(settings, std::as_bytes(std::span(text)));
        } else {
            const uint64_t most = UINT64_MAX >> (64 - 8 * member.size);
            const std::array number{value.at(name).number(0, most)};
            member.set(settings, std::as_bytes(std::span(number)).first(member.size));
        }
    }
    return settings;
}

void readTable(const Value& value, ProfileTable& table) {
    value.allowOnly(std::array{"capacity", "profiles"});
    const auto capacity =
        static_cast<unsigned>(value.at("capacity").number(0, ProfileTable::kMostProfiles));
    const auto profiles = value.at("profiles").elements();
    if (profiles.size() > capacity) {
        value.at("profiles")
            .refuse(std::to_string(profiles.size()) + " are more than the capacity, " +
                    std::to_string(capacity));
    }
    table.setCapacity(capacity);
    for (const Value& profile : profiles) {
        profile.allowOnly(std::array{"index", "persistent", "settings"});
        const auto index =
            static_cast<uint8_t>(profile.at("index").number(table.firstIndex(), table.lastIndex()));
        const bool persistent = profile.at("persistent").flag();
        const Settings settings = readSettings(table.technology(), profile.at("settings"));
        if (!table.insert(index, settings, persistent)) {
            profile.at("index").refuse("another profile has " + std::to_string(index));
        }
    }
}

}  // namespace

std::string formatState(const std::string& path, const ProfileTables& tables) {
    for (const ProfileTable* table : {&tables.table3gpp, &tables.table3gpp2}) {
        if (table->all().size() > table->getCapacity()) {
            throw StateFileError(
                path + ": not written, a table holds " + std::to_string(table->all().size()) +
                " profiles, more than its capacity, " + std::to_string(table->getCapacity()));
        }
    }
    const ordered_json state{
        {"format", kFormat},
        {"version", kVersion},
        {"tables",
         {{"3gpp", describeTable(tables.table3gpp)}, {"3gpp2", describeTable(tables.table3gpp2)}}}};
    return state.dump(1) + "\n";
}

ProfileTables parseState(const std::string& path, std::string_view text) {
    const Json json = TextParser(path, text).run();
    const Value state(path, json);
    // These two first, so that the file of another version is told from a damaged one.
    if (state.at("format").string() != kFormat) {
        state.at("format").refuse(std::string("not '") + kFormat + "'");
    }
    state.at("version").number(kVersion, kVersion);
    state.allowOnly(std::array{"format", "version", "tables"});
    const Value tables = state.at("tables");
    tables.allowOnly(std::array{"3gpp", "3gpp2"});
    ProfileTables read;
    readTable(tables.at("3gpp"), read.table3gpp);
    readTable(tables.at("3gpp2"), read.table3gpp2);
    return read;
}

}  // namespace kiv::emulator
