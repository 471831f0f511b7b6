#ifndef TOOLS_KIVCTL_SETTINGLIST_H
#define TOOLS_KIVCTL_SETTINGLIST_H

#include <nlohmann/json.hpp>
#include <span>
#include <string>
#include <string_view>

#include "ProfileParams.h"

namespace kiv::kivctl {

using Json = nlohmann::ordered_json;

/// What is particular about a setting.
struct Traits {
    bool isSecret = false;
    bool isText = false;      ///< any text is a value, "-1" included
    bool isInverted = false;  ///< the attribute says the opposite
    bool isTuning = false;    ///< without it an entry still says what it asks for
};

/// One setting of a profile: how it is named, read and shown. APN files, options and reports all
/// go by this list.
///
/// Threads: any. Ownership: constants of the program. Blocking: never.
struct Setting {
    const char* name;       ///< in reports
    const char* attribute;  ///< in APN files; empty if they don't have the setting
    const char* expected;   ///< what values it takes, for messages
    Traits traits;
    /// Stores the value, and returns what of it can't be read and is left away; empty for nothing.
    std::string_view (*parse)(std::string_view text, ProfileParams& params);
    /// Null if the setting is absent.
    Json (*print)(const ProfileParams& params);
};

/// In the order in which reports show them.
std::span<const Setting> allSettings();

/// What stands in an APN file, as what parse takes: "-1" and the opposite of an inverted setting.
/// Empty for a value that is not given.
std::string attributeValue(const Setting& setting, std::string_view text);

/// Stores the APN types of a list such as "default,supl"; "*" is all of them. Returns the
/// first word that is not known; the known ones are stored all the same.
std::string_view parseTypes(std::string_view text, ProfileParams& params);

/// The words of a set of APN types, with commas between them; "none" for the empty set.
std::string apnTypeText(uint32_t mask);

}  // namespace kiv::kivctl

#endif
