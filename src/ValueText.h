#ifndef KIVR_SRC_VALUETEXT_H
#define KIVR_SRC_VALUETEXT_H

#include <optional>
#include <string>
#include <type_traits>

#include "ProfileTypes.h"

namespace kiv {

/// The printed text of a value: its name, or the decimal number of a value that has none.
std::string toText(TechType value);
std::string toText(IPType value);
std::string toText(AuthType value);
std::string toText(ApnClass value);

/// The printed text of a set: each name with a "|" behind it. Bits without a name print nothing.
std::string toText(ApnTypes mask);
std::string toText(FilterMatchType mask);

/// A text that has room for as much as most lines hold, so that it seldom has to grow.
inline std::string emptyLine() {
    std::string text;
    text.reserve(200);
    return text;
}

/// Appends label, value and "," if the setting is present. Flags print as "true" and "false".
template <class Value>
void appendSetting(std::string& text, const char* label, const std::optional<Value>& setting) {
    if (!setting) {
        return;
    }
    text += label;
    if constexpr (std::is_same_v<Value, std::string>) {
        text += *setting;
    } else if constexpr (std::is_same_v<Value, bool>) {
        text += *setting ? "true" : "false";
    } else if constexpr (std::is_enum_v<Value>) {
        text += toText(*setting);
    } else {
        text += std::to_string(*setting);
    }
    text += ',';
}

}  // namespace kiv

#endif
