#include "ValueText.h"

#include <cstdint>
#include <initializer_list>
#include <string_view>

namespace kiv {

namespace {

using Names = std::initializer_list<std::string_view>;

/// names[i] belongs to the value first + i.
template <class Value>
void appendNameOrNumber(std::string& text, Value value, int32_t first, Names names) {
    const int64_t index = int64_t{static_cast<int32_t>(value)} - first;
    if (index < 0 || index >= static_cast<int64_t>(names.size())) {
        text += std::to_string(static_cast<int32_t>(value));
    } else {
        text += names.begin()[index];
    }
}

/// names[i] belongs to bit i.
void appendNamesOfBits(std::string& text, uint32_t mask, std::string_view emptyText, Names names) {
    if (mask == 0) {
        text += emptyText;
    }
    for (const std::string_view name : names) {
        if ((mask & 1U) != 0) {
            text += name;
            text += '|';
        }
        mask >>= 1;
    }
}

}  // namespace

void appendText(std::string& text, TechType value) {
    appendNameOrNumber(text, value, 0, {"3GPP", "3GPP2"});
}

void appendText(std::string& text, IPType value) {
    appendNameOrNumber(text, value, 0, {"UNKNOWN", "V4", "V6", "V4V6"});
}

void appendText(std::string& text, AuthType value) {
    appendNameOrNumber(text, value, 0, {"NONE", "PAP", "CHAP", "PAP_CHAP"});
}

void appendText(std::string& text, ApnClass value) {
    appendNameOrNumber(text, value, 1, {"IMS", "ADMN", "INET", "APP"});
}

void appendText(std::string& text, ApnTypes mask) {
    appendNamesOfBits(text, toMask(mask), "NONE",
                      {"DEFAULT", "MMS", "SUPL", "DUN", "HIPRI", "FOTA", "IMS", "CBS", "IA",
                       "EMERGENCY", "MCX", "XCAP"});
}

void appendText(std::string& text, FilterMatchType mask) {
    appendNamesOfBits(text, toMask(mask), "None",
                      {"HomeIPSubset", "RoamIPSubset", "ApnNameSubset", "ApnTypeBitmaskSubset",
                       "HomeIPSuperset", "RoamIPSuperset"});
}

}  // namespace kiv
