#ifndef EMULATOR_PROFILESETTINGS_H
#define EMULATOR_PROFILESETTINGS_H

#include "wds_v01.h"

namespace kiv::emulator {

/// Whether every text that is present, and that the technology has, ends within its member.
bool areTextsTerminated(wds_profile_type_enum_v01 type,
                        const wds_profile_settings_type_v01& settings);

/// Copies the members that are present in the change, and that the technology has, over those
/// stored. The stored record stays clean: flags are 0 or 1, and what follows the end of a text,
/// absent and reserved members are zero. The change's texts must be terminated.
void mergeSettings(wds_profile_type_enum_v01 type, const wds_profile_settings_type_v01& change,
                   wds_profile_settings_type_v01& stored);

}  // namespace kiv::emulator

#endif
