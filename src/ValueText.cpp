#include "ValueText.h"

#include <cstddef>
#include <cstdint>

namespace kiv {

namespace {

/// names[i] belongs to the value first + i.
template <class Value, size_t count>
std::string nameOrNumber(Value value, int32_t first, const char* const (&names)[count]) {
    const int64_t index = int64_t{static_cast<int32_t>(value)} - first;
    if (index < 0 || index >= static_cast<int64_t>(count)) {
        return std::to_string(static_cast<int32_t>(value));
    }
    return names[index];
}

/// names[i] belongs to bit i.
template <size_t count>
std::string namesOfBits(uint32_t mask, const char* emptyText, const char* const (&names)[count]) {
    if (mask == 0) {
        return emptyText;
    }
    std::string text;
    for (size_t bit = 0; bit < count; ++bit) {
        if ((mask >> bit & 1U) != 0) {
            text += names[bit];
            text += '|';
        }
    }
    return text;
}

}  // namespace

std::string toText(TechType value) { return nameOrNumber(value, 0, {"3GPP", "3GPP2"}); }

std::string toText(IPType value) { return nameOrNumber(value, 0, {"UNKNOWN", "V4", "V6", "V4V6"}); }

std::string toText(AuthType value) {
    return nameOrNumber(value, 0, {"NONE", "PAP", "CHAP", "PAP_CHAP"});
}

std::string toText(ApnClass value) {
    return nameOrNumber(value, 1, {"IMS", "ADMN", "INET", "APP"});
}

std::string toText(ApnTypes mask) {
    return namesOfBits(toMask(mask), "NONE",
                       {"DEFAULT", "MMS", "SUPL", "DUN", "HIPRI", "FOTA", "IMS", "CBS", "IA",
                        "EMERGENCY", "MCX", "XCAP"});
}

std::string toText(FilterMatchType mask) {
    return namesOfBits(toMask(mask), "None",
                       {"HomeIPSubset", "RoamIPSubset", "ApnNameSubset", "ApnTypeBitmaskSubset",
                        "HomeIPSuperset", "RoamIPSuperset"});
}

}  // namespace kiv
