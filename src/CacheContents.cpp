#include "CacheContents.h"

#include <algorithm>

namespace kiv {

void CacheContents::insert(Profiles& added) {
    std::lock_guard lock(mutex);
    profiles.merge(added);
}

void CacheContents::exchange(uint64_t token, Profile& profile) {
    std::lock_guard lock(mutex);
    const auto found = profiles.find(token);
    if (found != profiles.end()) {
        found->second.swap(profile);
    }
}

CacheContents::Profile CacheContents::take(uint64_t token) {
    Profile taken;
    std::lock_guard lock(mutex);
    const auto found = profiles.find(token);
    if (found != profiles.end()) {
        taken.swap(found->second);
        profiles.erase(found);
    }
    return taken;
}

CacheContents::Profiles CacheContents::takeAll() {
    Profiles taken;
    std::lock_guard lock(mutex);
    taken.swap(profiles);
    return taken;
}

void CacheContents::apply(ModemProfile& profile, const Profile& difference) {
    std::lock_guard lock(mutex);
    profile.takeTexts(*difference);
    profile.apply(difference);
}

void CacheContents::expect(Changes& changes) {
    std::lock_guard lock(mutex);
    expected.splice(expected.end(), changes);
}

bool CacheContents::confirm(const ProfileChangedInd& ind) {
    std::lock_guard lock(mutex);
    const auto found = std::find(expected.begin(), expected.end(), ind);
    if (found == expected.end()) {
        return false;
    }
    expected.erase(found);
    return true;
}

void CacheContents::forgetExpectedButCreations() {
    std::lock_guard lock(mutex);
    expected.remove_if(
        [](const ProfileChangedInd& change) { return change.event != ProfileChangeEvent::Create; });
}

std::optional<CacheContents::Profile> CacheContents::find(uint64_t token) {
    std::lock_guard lock(mutex);
    const auto found = profiles.find(token);
    return found == profiles.end() ? std::nullopt : std::optional(found->second);
}

std::vector<CacheContents::Profiles::value_type> CacheContents::matching(
    const FilterProfileParams& filter, int& unreadable) {
    std::vector<Profiles::value_type> found;
    std::lock_guard lock(mutex);
    for (const auto& [token, profile] : profiles) {
        if (!profile) {
            ++unreadable;
        } else if (profile->match(filter)) {
            found.emplace_back(token, profile);
        }
    }
    return found;
}

std::vector<uint64_t> CacheContents::tokensOf(TechType techType, int profileId) {
    std::vector<uint64_t> tokens;
    std::lock_guard lock(mutex);
    for (const auto& [token, profile] : profiles) {
        if (profile && profile->getTechType() == techType && profile->getProfileId() == profileId) {
            tokens.push_back(token);
        }
    }
    return tokens;
}

std::vector<std::string> CacheContents::dump() {
    std::lock_guard lock(mutex);
    std::vector<std::string> lines = {"Cache:"};
    for (const auto& [token, profile] : profiles) {
        lines.push_back("  " + std::to_string(token) + ": " + dumpProfile(profile));
    }
    lines.push_back("Pending:");
    for (const ProfileChangedInd& change : expected) {
        lines.push_back("  " + change.dump());
    }
    return lines;
}

std::string CacheContents::dumpProfile(const Profile& profile) {
    return profile ? profile->dump() : "null";
}

}  // namespace kiv
