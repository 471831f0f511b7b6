#ifndef EMULATOR_PROFILESETTINGS_H
#define EMULATOR_PROFILESETTINGS_H

#include <cstddef>
#include <functional>
#include <span>
#include <string_view>

#include "wds_v01.h"

namespace kiv::emulator {

/// Where a member of the settings and its flag lie.
struct SettingsMember {
    enum class Technology { Both, Only3gpp, Only3gpp2 };

    std::string_view name;
    size_t flag;
    size_t value;
    size_t size;
    Technology technology;
    bool isText;

    bool belongsTo(wds_profile_type_enum_v01 type) const {
        return technology == Technology::Both ||
               (technology == Technology::Only3gpp) == (type == WDS_PROFILE_TYPE_3GPP_V01);
    }
    /// Whether the technology has the member and its flag is set.
    bool isPresent(wds_profile_type_enum_v01 type,
                   const wds_profile_settings_type_v01& settings) const;
    /// The bytes that count: of a text, those before its terminating zero.
    std::span<const std::byte> used(const wds_profile_settings_type_v01& settings) const;
    /// Stores a value that fits, and sets the flag.
    void set(wds_profile_settings_type_v01& settings, std::span<const std::byte> bytes) const;
};

/// All members but the reserved one, in the order of the record.
std::span<const SettingsMember> settingsMembers();

/// Whether every text that is present, and that the technology has, ends within its member.
bool areTextsTerminated(wds_profile_type_enum_v01 type,
                        const wds_profile_settings_type_v01& settings);

/// Copies the members that are present in the change, and that the technology has, over those
/// stored. The stored record stays clean: flags are 0 or 1, and what follows the end of a text,
/// absent and reserved members are zero. The change's texts must be terminated.
void mergeSettings(wds_profile_type_enum_v01 type, const wds_profile_settings_type_v01& change,
                   wds_profile_settings_type_v01& stored);

/// A member that is present in settings. An enumeration has four bytes.
struct PresentMember {
    const char* name;
    bool isText;
    bool isSecret;
    std::span<std::byte> value;  ///< of a text, with all that follows its end
};

/// Calls the action with each member that is present and that the technology has.
void forEachPresent(wds_profile_type_enum_v01 type, wds_profile_settings_type_v01& settings,
                    const std::function<void(const PresentMember&)>& action);

}  // namespace kiv::emulator

#endif
