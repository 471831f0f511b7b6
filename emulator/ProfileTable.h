#ifndef EMULATOR_PROFILETABLE_H
#define EMULATOR_PROFILETABLE_H

#include <cstdint>
#include <map>
#include <optional>

#include "ModemEmulator.h"

namespace kiv::emulator {

/// The modem's profiles of one technology, by index. Indexes run from 1 to 255 for 3GPP and from
/// 0 to 254 for 3GPP2.
///
/// Threads: one at a time. Ownership: plain value. Blocking: never.
class ProfileTable {
public:
    static constexpr unsigned kMostProfiles = WDS_PROFILE_LIST_MAX_V01;

    explicit ProfileTable(wds_profile_type_enum_v01 technology) : type(technology) {}

    /// Stores a profile under the lowest free index; no value when the table is full.
    std::optional<uint8_t> create(const wds_profile_settings_type_v01& settings, bool persistent);
    bool modify(uint8_t index, const wds_profile_settings_type_v01& settings);
    bool remove(uint8_t index);

    const Profile* find(uint8_t index) const;
    const std::map<uint8_t, Profile>& all() const { return profiles; }

    /// False, and nothing changed, for more than kMostProfiles. Profiles beyond the number stay.
    bool setCapacity(unsigned number);

    void dropTransient();
    void reset();

private:
    const wds_profile_type_enum_v01 type;
    unsigned capacity = kMostProfiles;
    std::map<uint8_t, Profile> profiles;
};

}  // namespace kiv::emulator

#endif
