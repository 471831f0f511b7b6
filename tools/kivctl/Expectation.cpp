#include "Expectation.h"

#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "ApnTypeWords.h"

namespace kiv::kivctl {
namespace {

constexpr size_t kMaxApnName = 150;

enum class Fit { exact, loose };

using Predicate = std::function<bool(const HeldProfile&)>;

std::string foldedName(const ProfileParams& asked) {
    return lowered(std::string_view(asked.getApnName()).substr(0, kMaxApnName));
}

bool hasApn(const HeldProfile& profile, const ProfileParams& asked) {
    return !asked.hasApnName() ||
           (profile.apnName && lowered(*profile.apnName) == foldedName(asked));
}

/// Loosely, one of the two types must include the other; unknown is the empty one.
bool fits(IPType asked, IPType held, Fit fit) {
    const auto a = static_cast<uint32_t>(asked);
    const auto h = static_cast<uint32_t>(held);
    return a == h || (fit == Fit::loose && ((a & h) == a || (a & h) == h));
}

bool fitsHome(const HeldProfile& profile, IPType asked, Fit fit) {
    const auto held = profile.effectiveHomeType();
    if (!held && profile.techType == TechType::Tech3gpp) {
        return false;
    }
    return fits(asked, held.value_or(IPType::UNKNOWN), fit);
}

/// A modem that has no roaming types uses the home type; one that has only one of them, or two
/// that differ, fits nothing.
bool fitsRoaming(const HeldProfile& profile, IPType asked, Fit fit) {
    if (!profile.lteRoamType) {
        return !profile.umtsRoamType && profile.homeType && fits(asked, *profile.homeType, fit);
    }
    return profile.umtsRoamType.value_or(IPType::UNKNOWN) == *profile.lteRoamType &&
           fits(asked, *profile.lteRoamType, fit);
}

bool fitsTypes(const HeldProfile& profile, const ProfileParams& asked, Fit fit) {
    return (!asked.hasHomeIPType() || fitsHome(profile, asked.getHomeIPType(), fit)) &&
           (!asked.hasRoamIPType() || fitsRoaming(profile, asked.getRoamIPType(), fit));
}

std::vector<HeldProfile> select(const ModemTable& table, const Predicate& predicate) {
    std::vector<HeldProfile> selected;
    for (const HeldProfile& profile : table) {
        if (profile.techType == TechType::Tech3gpp && predicate(profile)) {
            selected.push_back(profile);
        }
    }
    return selected;
}

/// Home and roaming type as they are kept: where they differ, the home type becomes dual-stack and
/// the one asked for goes into the override.
void foldIpTypes(HeldProfile& profile, const ProfileParams& asked) {
    const auto home =
        asked.hasHomeIPType() ? std::optional(asked.getHomeIPType()) : profile.effectiveHomeType();
    std::optional<IPType> roam;
    if (asked.hasRoamIPType()) {
        roam = asked.getRoamIPType();
    } else if (profile.lteRoamType == profile.umtsRoamType) {
        roam = profile.lteRoamType;
    }
    if (roam) {
        profile.lteRoamType = profile.umtsRoamType = roam;
    }
    if (!home) {
        return;
    }
    profile.homeType = home;
    if (roam && *roam != *home) {
        profile.overrideHomeType = home;
        profile.homeType = IPType::V4V6;
    } else if (roam && profile.overrideHomeType) {
        profile.overrideHomeType = IPType::UNKNOWN;
    }
}

/// What an attach profile that exists is always brought into line with.
ProfileParams attachChanges(const ProfileParams& asked) {
    ProfileParams result;
    if (asked.hasUserName()) {
        result.setUserName(asked.getUserName());
    }
    if (asked.hasPassword()) {
        result.setPassword(asked.getPassword());
    }
    if (asked.hasAuthType()) {
        result.setAuthType(asked.getAuthType());
    }
    if (asked.hasApnTypesMask()) {
        result.setApnTypesMask(asked.getApnTypesMask());
    }
    if (asked.hasMaxPdnsConnPerBlock()) {
        result.setMaxPdnsConnPerBlock(asked.getMaxPdnsConnPerBlock());
    }
    if (asked.hasMaxPdnConnTimer()) {
        result.setMaxPdnConnTimer(asked.getMaxPdnConnTimer());
    }
    if (asked.hasPdnReqWaitInterval()) {
        result.setPdnReqWaitInterval(asked.getPdnReqWaitInterval());
    }
    return result;
}

void addOutcomes(Outcomes& outcomes, const std::vector<HeldProfile>& profiles,
                 const ProfileParams& changes) {
    for (const HeldProfile& profile : profiles) {
        outcomes.push_back({false, changedProfile(profile, changes)});
    }
}

/// Where no profile of the modem's own fits: a library attach profile, else a new one.
void addLibraryAttachOutcomes(Outcomes& outcomes, const ModemTable& table,
                              const ProfileParams& asked) {
    ProfileParams changes = attachChanges(asked);
    if (asked.hasHomeIPType()) {
        changes.setHomeIPType(asked.getHomeIPType());
    }
    if (asked.hasRoamIPType()) {
        changes.setRoamIPType(asked.getRoamIPType());
    }
    auto found = select(
        table, [&](const HeldProfile& p) { return p.isAttachProfile() && hasApn(p, asked); });
    if (found.empty()) {
        found = select(table, [](const HeldProfile& p) { return p.isAttachProfile(); });
        if (asked.hasApnName()) {
            changes.setApnName(asked.getApnName());
        }
    }
    addOutcomes(outcomes, found, changes);
    if (found.empty()) {
        outcomes.push_back({true, createdProfile(asked, true, kAttachProfileName)});
    }
}

/// Writes the mask to every profile of that technology, name and home type. False if there is none.
bool writeTypes(ModemTable& table, TechType techType, IPType homeType, uint32_t mask,
                const std::string& name) {
    ProfileParams changes;
    changes.setApnTypesMask(mask);
    bool found = false;
    for (HeldProfile& profile : table) {
        if (profile.techType == techType && profile.apnName && lowered(*profile.apnName) == name &&
            fitsHome(profile, homeType, Fit::exact)) {
            profile = changedProfile(profile, changes);
            found = true;
        }
    }
    return found;
}

struct TypeMasks {
    uint32_t v4 = 0;
    uint32_t v6 = 0;
    uint32_t dual = 0;
};

void spreadTypes(ModemTable& table, TechType techType, const TypeMasks& masks,
                 const std::string& name) {
    const auto write = [&](IPType homeType, uint32_t mask) {
        return writeTypes(table, techType, homeType, mask, name);
    };
    const bool v4Homeless = masks.v4 != 0 && !write(IPType::V4, masks.v4);
    const uint32_t combined = masks.dual | (v4Homeless ? masks.v4 : 0);
    const bool v6Homeless = masks.v6 != 0 && !write(IPType::V6, masks.v6);
    const uint32_t dual = combined | (v6Homeless ? masks.v6 : 0);
    if (dual == 0 || write(IPType::V4V6, dual)) {
        return;
    }
    write(IPType::V4, dual | masks.v4);
    write(IPType::V6, combined | masks.v6);
}

}  // namespace

HeldProfile changedProfile(HeldProfile profile, const ProfileParams& changes) {
    if (changes.hasApnName() &&
        (!profile.apnName || lowered(*profile.apnName) != foldedName(changes))) {
        profile.apnName = foldedName(changes);
    }
    const auto take = [](auto& field, bool has, auto value) {
        if (has) {
            field = value;
        }
    };
    take(profile.userName, changes.hasUserName(), changes.getUserName());
    take(profile.password, changes.hasPassword(), changes.getPassword());
    take(profile.authType, changes.hasAuthType(), changes.getAuthType());
    take(profile.clatEnabled, changes.hasIsClatEnabled(), changes.getIsClatEnabled());
    if (changes.hasApnTypesMask() &&
        (!profile.typeMask || libraryTypeMask(*profile.typeMask) != changes.getApnTypesMask())) {
        // Bits of the modem that the library has no type for make no difference.
        profile.typeMask = modemTypeMask(changes.getApnTypesMask());
    }
    if (profile.techType == TechType::Tech3gpp2) {
        take(profile.homeType, changes.hasHomeIPType(), changes.getHomeIPType());
        return profile;
    }
    take(profile.emergencySupported, changes.hasIsEmergencySupported(),
         changes.getIsEmergencySupported());
    take(profile.apnDisabled, changes.hasIsApnDisabled(), changes.getIsApnDisabled());
    take(profile.maxConns, changes.hasMaxPdnsConnPerBlock(), changes.getMaxPdnsConnPerBlock());
    take(profile.maxConnsTime, changes.hasMaxPdnConnTimer(), changes.getMaxPdnConnTimer());
    take(profile.waitTime, changes.hasPdnReqWaitInterval(), changes.getPdnReqWaitInterval());
    foldIpTypes(profile, changes);
    return profile;
}

HeldProfile createdProfile(const ProfileParams& asked, bool persistent, const char* name) {
    HeldProfile profile = changedProfile({}, asked);
    profile.persistent = persistent;
    profile.name = name;
    return profile;
}

Outcomes expectAttach(const ModemTable& table, const ProfileParams& asked) {
    Outcomes outcomes;
    const auto isAcceptable = [](const HeldProfile& p) {
        return !p.isLibraryProfile() || p.isAttachProfile();
    };
    const auto exact = select(table, [&](const HeldProfile& p) {
        return hasApn(p, asked) && fitsTypes(p, asked, Fit::exact);
    });
    size_t refused = 0;
    for (const HeldProfile& profile : exact) {
        if (isAcceptable(profile)) {
            addOutcomes(outcomes, {profile}, attachChanges(asked));
        } else {
            ++refused;
        }
    }
    // The library looks at one exact match only: a refused one sends it on, whatever the others
    // are.
    if (!exact.empty() && refused == 0) {
        return outcomes;
    }
    const auto loose = select(table, [&](const HeldProfile& p) {
        return !p.isLibraryProfile() && hasApn(p, asked) && fitsTypes(p, asked, Fit::loose);
    });
    addOutcomes(outcomes, loose, attachChanges(asked));
    if (loose.empty()) {
        addLibraryAttachOutcomes(outcomes, table, asked);
    }
    return outcomes;
}

Outcomes expectDataCall(const ModemTable& table, const ProfileParams& asked) {
    Outcomes outcomes;
    for (const Fit fit : {Fit::exact, Fit::loose}) {
        const auto found = select(table, [&](const HeldProfile& p) {
            return hasApn(p, asked) &&
                   (!asked.hasHomeIPType() || fitsHome(p, asked.getHomeIPType(), fit));
        });
        for (const HeldProfile& profile : found) {
            outcomes.push_back({false, profile});
        }
        if (!outcomes.empty()) {
            return outcomes;
        }
    }
    return {{true, createdProfile(asked, false, kLibraryProfileName)}};
}

Outcomes expectEmergency(const ModemTable& table, const ProfileParams& asked) {
    const auto capable =
        select(table, [](const HeldProfile& p) { return p.emergencySupported.value_or(false); });
    Outcomes named;
    Outcomes any;
    for (const HeldProfile& profile : capable) {
        any.push_back({false, profile});
        if (asked.hasApnName() && hasApn(profile, asked)) {
            named.push_back({false, profile});
        }
    }
    if (!named.empty() || !any.empty()) {
        return named.empty() ? any : named;
    }
    HeldProfile profile = createdProfile(asked, true, kLibraryProfileName);
    profile.emergencySupported = true;
    profile.typeMask = WDS_APN_TYPE_MASK_EMERGENCY_V01;
    return {{true, profile}};
}

void expectTypes(ModemTable& table, const std::list<ProfileParams>& asked) {
    std::map<std::string, TypeMasks> byName;
    for (const ProfileParams& params : asked) {
        if (!params.hasApnName()) {
            continue;
        }
        // The library looks for profiles by at most so much of a name.
        TypeMasks& masks = byName[foldedName(params)];
        switch (params.hasHomeIPType() ? params.getHomeIPType() : IPType::V4V6) {
            case IPType::V4:
                masks.v4 |= params.getApnTypesMask();
                break;
            case IPType::V6:
                masks.v6 |= params.getApnTypesMask();
                break;
            default:
                masks.dual |= params.getApnTypesMask();
        }
    }
    for (const auto& [name, masks] : byName) {
        spreadTypes(table, TechType::Tech3gpp, masks, name);
        spreadTypes(table, TechType::Tech3gpp2, masks, name);
    }
}

}  // namespace kiv::kivctl
