#ifndef EMULATOR_JSON_H
#define EMULATOR_JSON_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace kiv::emulator {

/// A text is not as expected: "FILE: faults[1].nth: reason" or, where it is no JSON,
/// "FILE:line:column: reason".
struct JsonError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// One value of a JSON text, read strictly: a value other than the expected one is refused with a
/// JsonError.
///
/// Threads: one at a time. Ownership: refers to the text that readJson has parsed. Blocking: never.
class JsonValue {
public:
    using Reader = std::function<void(JsonValue&)>;

    JsonValue(const nlohmann::json& value, std::string valuePlace);

    [[noreturn]] void refuse(const std::string& reason) const;

    bool isObject() const;
    bool flag() const;
    /// A negative number is returned as its two's complement.
    uint64_t number(int64_t least, uint64_t most) const;
    /// A number above 0, up to 1.
    double probability() const;
    const std::string& text() const;
    /// A text of hexadecimal digits.
    std::vector<std::byte> bytes() const;
    /// The elements of a list.
    void each(const Reader& read) const;
    /// The value is an object, of which the reader must ask for every member.
    void object(const Reader& read);

    std::optional<JsonValue> find(std::string_view key);
    /// Refuses the object if the member is missing.
    JsonValue at(std::string_view key);
    /// Leaves the target as it is if the member is missing.
    template <class Target>
    void number(std::string_view key, int64_t least, uint64_t most, Target& target) {
        if (const auto value = find(key)) {
            target = value->number(least, most);
        }
    }

private:
    void require(bool isKnown, const char* otherwise) const;
    JsonValue memberAt(std::string_view key, const nlohmann::json& value) const;

    const nlohmann::json& json;
    const std::string place;
    std::set<std::string, std::less<>> asked;  ///< the members that were asked for
};

/// Parses a JSON text, which may be hostile, and has its value read. Refuses members that are given
/// twice, and nesting beyond that of any file.
void readJson(const std::string& path, std::string_view text, const JsonValue::Reader& read);

/// A JSON text that is composed: a number, a text in UTF-8, or an object or a list that grows.
///
/// Threads: one at a time. Ownership: plain value. Blocking: never.
class JsonText {
public:
    static JsonText object() { return {"{", "}"}; }
    static JsonText list() { return {"[", "]"}; }

    template <class Value>
    JsonText(const Value& value) {
        if constexpr (std::is_same_v<Value, bool>) {
            written = value ? "true" : "false";
        } else if constexpr (std::is_integral_v<Value>) {
            written = std::to_string(value);
        } else {
            written = quote(value);
        }
    }

    /// Members are written in the order in which they are added.
    JsonText& add(std::string_view name, const JsonText& value);
    JsonText& add(const JsonText& element);

    std::string text() const { return written + closing; }
    std::string indentedText() const;

private:
    JsonText(const char* first, const char* last) : written(first), closing(last) {}
    static std::string quote(std::string_view string);

    std::string written;
    const char* closing = "";
};

}  // namespace kiv::emulator

#endif
