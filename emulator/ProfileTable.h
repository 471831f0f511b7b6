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
    /// Stores a profile under an index of its own: false if that is taken or out of range, or the
    /// table is full.
    bool insert(uint8_t index, const wds_profile_settings_type_v01& settings, bool persistent);
    bool modify(uint8_t index, const wds_profile_settings_type_v01& settings);
    bool remove(uint8_t index) { return profiles.erase(index) != 0; }
    void clear() { profiles.clear(); }
    void dropTransient();

    wds_profile_type_enum_v01 technology() const { return type; }
    unsigned firstIndex() const { return type == WDS_PROFILE_TYPE_3GPP_V01 ? 1 : 0; }
    unsigned lastIndex() const { return firstIndex() + kMostProfiles - 1; }

    const std::map<uint8_t, Profile>& all() const { return profiles; }

    /// False, and nothing changed, for more than kMostProfiles. Profiles beyond the number stay.
    bool setCapacity(unsigned number);
    unsigned getCapacity() const { return capacity; }

private:
    wds_profile_type_enum_v01 type;
    unsigned capacity = kMostProfiles;
    std::map<uint8_t, Profile> profiles;
};

/// All that a modem keeps.
struct ProfileTables {
    ProfileTable table3gpp{WDS_PROFILE_TYPE_3GPP_V01};
    ProfileTable table3gpp2{WDS_PROFILE_TYPE_3GPP2_V01};

    /// The table of a type; null for any other type.
    ProfileTable* find(wds_profile_type_enum_v01 type);
    /// Null for an unknown profile or type.
    const Profile* find(wds_profile_type_enum_v01 type, uint8_t index);
};

}  // namespace kiv::emulator

#endif
