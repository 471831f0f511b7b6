#include "ProfileTable.h"

#include "Settings.h"

namespace kiv::emulator {

std::optional<uint8_t> ProfileTable::create(const wds_profile_settings_type_v01& settings,
                                            bool persistent) {
    if (profiles.size() >= capacity) {
        return std::nullopt;
    }
    auto index = static_cast<uint8_t>(firstIndex());
    for (auto taken = profiles.begin(); taken != profiles.end() && taken->first == index; ++taken) {
        ++index;
    }
    insert(index, settings, persistent);
    return index;
}

bool ProfileTable::insert(uint8_t index, const wds_profile_settings_type_v01& settings,
                          bool persistent) {
    if (profiles.size() >= capacity || index < firstIndex() || index > lastIndex()) {
        return false;
    }
    const auto [place, isNew] = profiles.try_emplace(index, Profile{type, index, persistent, {}});
    if (isNew) {
        mergeSettings(type, settings, place->second.settings);
    }
    return isNew;
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

}  // namespace kiv::emulator
