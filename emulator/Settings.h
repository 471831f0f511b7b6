#ifndef EMULATOR_SETTINGS_H
#define EMULATOR_SETTINGS_H

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "ModemEmulator.h"

namespace kiv::emulator {

class JsonValue;
class JsonText;

using Settings = wds_profile_settings_type_v01;

/// One setting of a profile: its name, and its place in the data service's record.
///
/// Threads: any. Ownership: constants of the program. Blocking: never.
struct Setting {
    enum class Technology { Both, Only3gpp, Only3gpp2 };

    std::string_view name;  ///< as in the record
    size_t flag;            ///< where its flag lies
    size_t place;           ///< where its value lies
    size_t size;            ///< of the value; of a text with the terminating zero
    Technology technology;
    bool isText;
    bool isSecret;

    bool belongsTo(wds_profile_type_enum_v01 type) const {
        return technology == Technology::Both ||
               (technology == Technology::Only3gpp) == (type == WDS_PROFILE_TYPE_3GPP_V01);
    }
    bool isPresent(const Settings& settings) const;
    /// The bytes that count: of a text, those before its terminating zero.
    std::span<const std::byte> value(const Settings& settings) const;
    /// Stores a value that fits, and sets the flag.
    void set(Settings& settings, std::span<const std::byte> bytes) const;
    /// To and from a file; a text of other than printable ASCII is written as {"hex": "c3a9"}. A
    /// value that does not fit is refused.
    JsonText written(const Settings& settings) const;
    void read(JsonValue& json, Settings& settings) const;
    /// The value for people: a number, or a text whose bytes beyond ASCII are shown as Latin-1.
    std::string shown(const Settings& settings) const;
};

/// All settings but the reserved one, in the order of the record.
std::span<const Setting> allSettings();

/// The setting of a name, which must be one of them.
const Setting& findSetting(std::string_view name);

/// A setting of a profile, to be shown.
struct ShownSetting {
    std::string_view name;
    bool isSecret = false;
    std::optional<std::string> text{};  ///< none where the profile does not have the setting
};

/// All settings, in the order of the record, as one profile has them. Of an absent profile (null)
/// none has a text. Any thread.
KIV_EMULATOR_API std::vector<ShownSetting> listSettings(const Profile* profile);

/// Whether every text that is present, and that the technology has, ends within its member.
bool areTextsTerminated(wds_profile_type_enum_v01 type, const Settings& settings);

/// Copies the settings that are present in the change, and that the technology has, over those
/// stored. The stored record stays clean: flags are 0 or 1, and the bytes after the end of a text,
/// absent and reserved members are zero. The change's texts must be terminated.
void mergeSettings(wds_profile_type_enum_v01 type, const Settings& change, Settings& stored);

}  // namespace kiv::emulator

#endif
