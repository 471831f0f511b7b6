#ifndef KIVR_SRC_VALUETEXT_H
#define KIVR_SRC_VALUETEXT_H

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

#include "ProfileTypes.h"

namespace kiv {

using Names = std::initializer_list<std::string_view>;

/// The name of a value, of which the first has the number first; the decimal number if it has none.
std::string nameOrNumber(int32_t value, Names names, int32_t first = 0);

/// Appends what is printed of a value.
void appendText(std::string& text, TechType value);
void appendText(std::string& text, IPType value);
void appendText(std::string& text, AuthType value);
void appendText(std::string& text, ApnClass value);

/// Appends what is printed of a set: each name with a "|" behind it. Bits without a name print
/// nothing.
void appendText(std::string& text, ApnTypes mask);
void appendText(std::string& text, FilterMatchType mask);

/// The same as a text of its own.
template <class Value>
std::string valueText(Value value) {
    std::string text;
    appendText(text, value);
    return text;
}

/// A text that has room for as much as most lines hold, so that it seldom has to grow.
inline std::string emptyLine() {
    std::string text;
    text.reserve(256);
    return text;
}

/// Appends label, value and "," if the setting is present. Flags print as "true" and "false".
template <class Value>
void appendSetting(std::string& text, std::string_view label, const std::optional<Value>& setting) {
    if (!setting) {
        return;
    }
    text += label;
    if constexpr (std::is_same_v<Value, std::string>) {
        text += *setting;
    } else if constexpr (std::is_same_v<Value, bool>) {
        text += std::string_view(*setting ? "true" : "false");
    } else if constexpr (std::is_enum_v<Value>) {
        appendText(text, *setting);
    } else {
        text += std::to_string(*setting);
    }
    text += ',';
}

}  // namespace kiv

#endif
