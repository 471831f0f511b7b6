#ifndef TOOLS_KIVCTL_APNTYPEWORDS_H
#define TOOLS_KIVCTL_APNTYPEWORDS_H

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "ProfileTypes.h"

namespace kiv::kivctl {

struct ApnTypeWord {
    std::string_view word;
    ApnTypes type;
};

/// What APN files call the APN types, in the order of their bits.
inline constexpr std::array<ApnTypeWord, 12> kApnTypeWords = {{
    {"default", ApnTypes::DEFAULT},
    {"mms", ApnTypes::MMS},
    {"supl", ApnTypes::SUPL},
    {"dun", ApnTypes::DUN},
    {"hipri", ApnTypes::HIPRI},
    {"fota", ApnTypes::FOTA},
    {"ims", ApnTypes::IMS},
    {"cbs", ApnTypes::CBS},
    {"ia", ApnTypes::IA},
    {"emergency", ApnTypes::EMERGENCY},
    {"mcx", ApnTypes::MCX},
    {"xcap", ApnTypes::XCAP},
}};

/// The words of a mask, with commas between them; the empty text for an empty mask.
inline std::string apnTypeText(uint32_t mask) {
    std::string text;
    for (const ApnTypeWord& entry : kApnTypeWords) {
        if ((mask & toMask(entry.type)) != 0) {
            text += text.empty() ? "" : ",";
            text += entry.word;
        }
    }
    return text;
}

/// ASCII only, as the library and the modem fold APN names.
inline std::string lowered(std::string_view text) {
    std::string result(text);
    for (char& c : result) {
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
    return result;
}

}  // namespace kiv::kivctl

#endif
