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

ProfileTable* ProfileTables::find(wds_profile_type_enum_v01 type) {
    if (type == WDS_PROFILE_TYPE_3GPP_V01) {
        return &table3gpp;
    }
    return type == WDS_PROFILE_TYPE_3GPP2_V01 ? &table3gpp2 : nullptr;
}

const Profile* ProfileTables::find(wds_profile_type_enum_v01 type, uint8_t index) {
    const ProfileTable* const table = find(type);
    const auto found = table ? table->all().find(index) : decltype(table->all().end())();
    return table && found != table->all().end() ? &found->second : nullptr;
}

}  // namespace kiv::emulator
