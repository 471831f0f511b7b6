#include "ProfileTable.h"

#include "ProfileSettings.h"

namespace kiv::emulator {

std::optional<uint8_t> ProfileTable::create(const wds_profile_settings_type_v01& settings,
                                            bool persistent) {
    if (profiles.size() >= capacity) {
        return std::nullopt;
    }
    uint8_t index = type == WDS_PROFILE_TYPE_3GPP_V01 ? 1 : 0;
    for (auto taken = profiles.begin(); taken != profiles.end() && taken->first == index; ++taken) {
        ++index;
    }
    Profile profile{type, index, persistent, {}};
    mergeSettings(type, settings, profile.settings);
    profiles.emplace(index, profile);
    return index;
}

bool ProfileTable::modify(uint8_t index, const wds_profile_settings_type_v01& settings) {
    const auto found = profiles.find(index);
    if (found == profiles.end()) {
        return false;
    }
    mergeSettings(type, settings, found->second.settings);
    return true;
}

bool ProfileTable::remove(uint8_t index) { return profiles.erase(index) != 0; }

const Profile* ProfileTable::find(uint8_t index) const {
    const auto found = profiles.find(index);
    return found == profiles.end() ? nullptr : &found->second;
}

bool ProfileTable::setCapacity(unsigned number) {
    if (number > kMostProfiles) {
        return false;
    }
    capacity = number;
    return true;
}

void ProfileTable::dropTransient() {
    std::erase_if(profiles, [](const auto& entry) { return !entry.second.persistent; });
}

void ProfileTable::reset() {
    profiles.clear();
    capacity = kMostProfiles;
}

}  // namespace kiv::emulator
