#include "ValueText.h"

namespace kiv {

namespace {

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

std::string nameOrNumber(int32_t value, Names names, int32_t first) {
    const int64_t index = int64_t{value} - first;
    const bool hasName = index >= 0 && index < static_cast<int64_t>(names.size());
    return hasName ? std::string(names.begin()[index]) : std::to_string(value);
}

void appendText(std::string& text, TechType value) {
    text += nameOrNumber(static_cast<int32_t>(value), {"3GPP", "3GPP2"});
}

void appendText(std::string& text, IPType value) {
    text += nameOrNumber(static_cast<int32_t>(value), {"UNKNOWN", "V4", "V6", "V4V6"});
}

void appendText(std::string& text, AuthType value) {
    text += nameOrNumber(static_cast<int32_t>(value), {"NONE", "PAP", "CHAP", "PAP_CHAP"});
}

void appendText(std::string& text, ApnClass value) {
    text += nameOrNumber(static_cast<int32_t>(value), {"IMS", "ADMN", "INET", "APP"}, 1);
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
