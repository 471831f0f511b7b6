#include "Json.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <sstream>
#include <utility>

#include "Encoding.h"

namespace kiv::emulator {
namespace {

using nlohmann::json;

constexpr int kMostNested = 8;  ///< one more than in any file

/// What a message can show of a text from the file.
std::string shown(std::string_view text) {
    constexpr size_t kMostShown = 160;
    std::string result(text.substr(0, kMostShown));
    std::replace_if(
        result.begin(), result.end(), [](char c) { return c < 0x20 || c >= 0x7f; }, '?');
    return text.size() > kMostShown ? result + "..." : result;
}

/// Refuses what the parser would put up with, and reports how far it got.
class TextParser {
public:
    TextParser(const std::string& path, std::string_view text)
        : path(path), stream(std::string(text)) {}

    json run() {
        try {
            return json::parse(stream, [this](int depth, json::parse_event_t event, json& parsed) {
                check(depth, event, parsed);
                return true;
            });
        } catch (const json::exception& error) {
            // The parser's own number and place come first.
            const std::string_view what = error.what();
            const size_t detail = what.find(": ");
            refuse(shown(detail == std::string_view::npos ? what : what.substr(detail + 2)));
        }
    }

private:
    void check(int depth, json::parse_event_t event, const json& parsed) {
        if (depth > kMostNested) {
            refuse("nested too deeply");
        }
        if (event == json::parse_event_t::object_start) {
            keys.emplace_back();
        } else if (event == json::parse_event_t::object_end) {
            keys.pop_back();
        } else if (event == json::parse_event_t::key) {
            const auto& key = parsed.get_ref<const std::string&>();
            if (!keys.back().insert(key).second) {
                refuse("'" + shown(key) + "' is given twice");
            }
        }
    }

    [[noreturn]] void refuse(const std::string& reason) {
        const auto end = stream.rdbuf()->pubseekoff(0, std::ios::cur, std::ios::in);
        const std::string read = stream.str().substr(0, static_cast<size_t>(end));
        const auto line = 1 + std::count(read.begin(), read.end(), '\n');
        const size_t column = read.size() - (read.rfind('\n') + 1);
        throw JsonError(path + ":" + std::to_string(line) + ":" + std::to_string(column) + ": " +
                        reason);
    }

    const std::string& path;
    std::istringstream stream;
    std::vector<std::set<std::string>> keys;  ///< of the objects that are open
};

}  // namespace

JsonValue::JsonValue(const nlohmann::json& value, std::string valuePlace)
    : json(value), place(std::move(valuePlace)) {}

void JsonValue::refuse(const std::string& reason) const {
    throw JsonError((place.empty() ? "the file" : place) + ": " + reason);
}

void JsonValue::require(bool isKnown, const char* otherwise) const {
    if (!isKnown) {
        refuse(otherwise);
    }
}

bool JsonValue::isObject() const { return json.is_object(); }

bool JsonValue::flag() const {
    require(json.is_boolean(), "neither true nor false");
    return json.get<bool>();
}

uint64_t JsonValue::number(int64_t least, uint64_t most) const {
    // Those of JSON that are not negative are unsigned.
    const bool isKnown =
        json.is_number_unsigned()
            ? json.get<uint64_t>() <= most && (least < 0 || json.get<uint64_t>() >= uint64_t(least))
            : json.is_number_integer() && json.get<int64_t>() >= least;
    if (!isKnown) {
        refuse("not a whole number from " + std::to_string(least) + " to " + std::to_string(most));
    }
    return json.get<uint64_t>();
}

double JsonValue::probability() const {
    const double value = json.is_number() ? json.get<double>() : 0;
    require(value > 0 && value <= 1, "not a number above 0, up to 1");
    return value;
}

const std::string& JsonValue::text() const {
    require(json.is_string(), "not a text");
    return json.get_ref<const std::string&>();
}

std::vector<std::byte> JsonValue::bytes() const {
    const auto read = fromHex(text());
    require(read.has_value(), "not pairs of digits 0 to f");
    return *read;
}

void JsonValue::each(const Reader& read) const {
    require(json.is_array(), "not a list");
    for (size_t i = 0; i < json.size(); ++i) {
        JsonValue element(json[i], place + "[" + std::to_string(i) + "]");
        read(element);
    }
}

void JsonValue::object(const Reader& read) {
    require(json.is_object(), "not an object");
    read(*this);
    for (const auto& member : json.items()) {
        memberAt(shown(member.key()), json).require(asked.contains(member.key()), "unknown");
    }
}

std::optional<JsonValue> JsonValue::find(std::string_view key) {
    asked.emplace(key);
    const auto found = json.find(std::string(key));
    return found == json.end() ? std::nullopt : std::optional(memberAt(key, *found));
}

JsonValue JsonValue::at(std::string_view key) {
    const auto found = find(key);
    memberAt(key, json).require(found.has_value(), "missing");
    return *found;
}

JsonValue JsonValue::memberAt(std::string_view key, const nlohmann::json& value) const {
    return {value, place + (place.empty() ? "" : ".") + std::string(key)};
}

void readJson(const std::string& path, std::string_view text, const JsonValue::Reader& read) {
    const json parsed = TextParser(path, text).run();
    JsonValue value(parsed, "");
    try {
        read(value);
    } catch (const JsonError& error) {
        throw JsonError(path + ": " + error.what());
    }
}

JsonText& JsonText::add(std::string_view name, const JsonText& value) {
    written += (written.size() > 1 ? "," : "") + quote(name) + ":" + value.text();
    return *this;
}

JsonText& JsonText::add(const JsonText& element) {
    written += (written.size() > 1 ? "," : "") + element.text();
    return *this;
}

std::string JsonText::indentedText() const { return nlohmann::ordered_json::parse(text()).dump(1); }

std::string JsonText::quote(std::string_view string) {
    static constexpr std::string_view kEscaped = "\"\\\b\f\n\r\t";
    std::string text = "\"";
    for (const char c : string) {
        const size_t place = kEscaped.find(c);
        if (place != std::string_view::npos) {
            text += {'\\', "\"\\bfnrt"[place]};
        } else if (static_cast<unsigned char>(c) < 0x20) {
            text += "\\u00" + toHex(std::as_bytes(std::span(&c, 1)));
        } else {
            text += c;
        }
    }
    return text + '"';
}

}  // namespace kiv::emulator
