#include "Util.h"

#include <new>
#include <string>
#include <unordered_map>

#include "Conversions.h"
#include "LogWrapper.h"

namespace kiv {

namespace {

using Key = std::shared_ptr<IProfileKey>;

constexpr uint32_t kHomeIPLoose =
    toMask(FilterMatchType::HomeIPSubset | FilterMatchType::HomeIPSuperset);
constexpr uint32_t kRoamIPLoose =
    toMask(FilterMatchType::RoamIPSubset | FilterMatchType::RoamIPSuperset);

/// What the policy returns, or the empty result if memory runs out on the way.
template <class Policy>
auto orNothing(Policy&& policy) -> decltype(policy()) {
    try {
        return policy();
    } catch (const std::bad_alloc&) {
        KIV_LOG(ERROR, "Util: out of memory");
        return decltype(policy())();
    }
}

std::string dumpKey(const Key& key) { return key ? key->dump() : ""; }

Key firstOf(const std::list<Key>& keys) { return keys.empty() ? nullptr : keys.front(); }

/// Of several profiles that fit, the policies take the first. The event, if given, is logged if
/// there is one, behind the release of the others.
Key findFirst(Manager& manager, const FilterProfileParams& filter, const char* event = nullptr) {
    Key first = firstOf(manager.filter(filter));
    if (first && event != nullptr) {
        KIV_LOG(EVENT, "%s", event);
    }
    return first;
}

using Params = ProfileParams;

/// Copies a setting, if it is there.
template <class Value>
void copy(const Params& from, Params& to, bool (Params::*has)() const, Value (Params::*get)() const,
          void (Params::*set)(Value)) {
    if ((from.*has)()) {
        (to.*set)((from.*get)());
    }
}

void copyApnName(const Params& from, Params& to) {
    copy(from, to, &Params::hasApnName, &Params::getApnName, &Params::setApnName);
}

void copyIPTypes(const Params& from, Params& to) {
    copy(from, to, &Params::hasHomeIPType, &Params::getHomeIPType, &Params::setHomeIPType);
    copy(from, to, &Params::hasRoamIPType, &Params::getRoamIPType, &Params::setRoamIPType);
}

void copyCredentials(const Params& from, Params& to) {
    copy(from, to, &Params::hasUserName, &Params::getUserName, &Params::setUserName);
    copy(from, to, &Params::hasPassword, &Params::getPassword, &Params::setPassword);
    copy(from, to, &Params::hasAuthType, &Params::getAuthType, &Params::setAuthType);
}

/// What an attach profile is brought into line with, whichever it is.
ModifyProfileParams attachChanges(const Params& from) {
    ModifyProfileParams to;
    copyCredentials(from, to);
    copy(from, to, &Params::hasApnTypesMask, &Params::getApnTypesMask, &Params::setApnTypesMask);
    copy(from, to, &Params::hasMaxPdnsConnPerBlock, &Params::getMaxPdnsConnPerBlock,
         &Params::setMaxPdnsConnPerBlock);
    copy(from, to, &Params::hasMaxPdnConnTimer, &Params::getMaxPdnConnTimer,
         &Params::setMaxPdnConnTimer);
    copy(from, to, &Params::hasPdnReqWaitInterval, &Params::getPdnReqWaitInterval,
         &Params::setPdnReqWaitInterval);
    return to;
}

FilterProfileParams filterOf(TechType techType) {
    FilterProfileParams filter;
    filter.setFilterByTechType(techType);
    return filter;
}

/// A profile that the library made for another use is never taken for attach.
bool acceptableForAttach(const ProfileParams& profile) {
    return !profile.getIsKivProfile() || profile.getIsIAProfile();
}

// LTE attach.

/// A profile for attach, and which settings it is given besides those that every such one is.
struct AttachProfile {
    Key key;
    bool getsIPTypes = false;
    bool getsApnName = false;
};

Key findExactAttachProfile(Manager& manager, const ProfileParams& params) {
    FilterProfileParams filter = filterOf(TechType::Tech3gpp);
    copyApnName(params, filter);
    if (!params.hasApnName()) {
        KIV_LOG(EVENT, "kiv NULL apn scenario");
    }
    copyIPTypes(params, filter);
    // Meant: if the first one won't do, the others are not looked at.
    Key key = findFirst(manager, filter);
    if (!key) {
        return nullptr;
    }
    const std::optional<ProfileParams> profile = manager.getProfile(key);
    if (!profile || !acceptableForAttach(*profile)) {
        return nullptr;
    }
    KIV_LOG(EVENT, "kiv Found an exact match modem or KIV IA profile for attach");
    return key;
}

struct LooseMatch {
    Key key;
    bool isAccepted = false;
};

/// A profile whose IP types need not be equal. One that can't be read is not accepted: it serves if
/// nothing better is found.
LooseMatch findLooseLteAttachProfile(Manager& manager, bool updateAllowed,
                                     const ProfileParams& params) {
    FilterProfileParams filter = filterOf(TechType::Tech3gpp);
    copyApnName(params, filter);
    if (!updateAllowed) {
        filter.setFilterByIsKivProfile(false);
        copyIPTypes(params, filter);
        filter.addFilterMatchCriteria((params.hasHomeIPType() ? kHomeIPLoose : 0) |
                                      (params.hasRoamIPType() ? kRoamIPLoose : 0));
    }
    const Key key = findFirst(manager, filter, "kiv Found a loose match profile for attach");
    if (!key) {
        return {};
    }
    const std::optional<ProfileParams> profile = manager.getProfile(key);
    if (!profile) {
        return {key};
    }
    if (!acceptableForAttach(*profile)) {
        KIV_LOG(EVENT, "It is not a KIV_IA profile. so skipping it.");
        return {};
    }
    KIV_LOG(EVENT, "It is KIV_IA profile or modem profile.");
    return {key, true};
}

/// The best existing profile.
AttachProfile findAttachProfile(Manager& manager, bool updateAllowed, const ProfileParams& params) {
    if (const Key exact = findExactAttachProfile(manager, params)) {
        return {exact};
    }
    const LooseMatch loose = findLooseLteAttachProfile(manager, updateAllowed, params);
    if (loose.isAccepted) {
        return {loose.key, updateAllowed};
    }
    FilterProfileParams filter = filterOf(TechType::Tech3gpp);
    filter.setFilterByIsKivProfile(true);
    filter.setFilterByIsIAProfile(true);
    FilterProfileParams filterByName = filter;
    copyApnName(params, filterByName);
    if (const Key named = findFirst(
            manager, filterByName, "kiv Found a KIV IA profile that matches APN name for attach")) {
        return {named, true};
    }
    if (const Key any = findFirst(manager, filter, "kiv Found any KIV IA profile for attach")) {
        return {any, true, true};
    }
    return {loose.key, true};
}

// APN classes and types.

void logDumps(const std::list<ProfileParams>& profiles) {
    for (const ProfileParams& params : profiles) {
        KIV_LOG(EVENT, "    %s", params.dump().c_str());
    }
}

void rewriteByApnClass(Manager& manager, const ProfileParams& params, TechType techType) {
    if (!params.hasApnClass()) {
        KIV_LOG(DEBUG, "kiv either tech type or apn class is missing");
        return;
    }
    FilterProfileParams filter = filterOf(techType);
    filter.setApnClass(params.getApnClass());
    const std::list<Key> keys = manager.filter(filter);
    if (keys.empty()) {
        KIV_LOG(DEBUG,
                "Did not find a match for APN class and tech type, create a persistent profile");
        if (!manager.addProfile(AddProfileParams(params, true, techType, false))) {
            KIV_LOG(ERROR, "Could not add profile by APN class");
        }
        return;
    }
    KIV_LOG(DEBUG, "Found a match for APN class and tech type, modify the profile");
    const ModifyProfileParams changes(params);
    for (const Key& key : keys) {
        if (!manager.modifyProfile(changes, key)) {
            KIV_LOG(ERROR, "Error while modifying profile by APN class");
        }
    }
}

/// The APN types wanted for one APN, by IP type.
struct Masks {
    uint32_t v4 = 0;
    uint32_t v6 = 0;
    uint32_t v4v6 = 0;

    uint32_t& of(IPType type) { return type == IPType::V4 ? v4 : type == IPType::V6 ? v6 : v4v6; }
};

/// The types wanted for each APN, by its lowered name. An absent set reads as empty, and an absent
/// IP type as UNKNOWN, which counts as dual stack.
std::unordered_map<std::string, Masks> gatherMasks(const std::list<ProfileParams>& profiles) {
    std::unordered_map<std::string, Masks> masks;
    for (const ProfileParams& params : profiles) {
        KIV_LOG(EVENT, "kiv update APN type bitmask on modem profile for %s",
                params.dump().c_str());
        if (!params.hasApnTypesMask()) {
            KIV_LOG(ERROR, "kiv APN type mask not present, setting to 0");
        }
        if (!params.hasHomeIPType()) {
            KIV_LOG(ERROR, "kiv Home IP type not present, setting to v4v6");
        }
        if (params.hasApnName()) {
            masks[convertToLower(params.getApnName())].of(params.getHomeIPType()) |=
                params.getApnTypesMask();
        }
    }
    return masks;
}

/// Gives every profile found the set, in place of its own. False if there is none.
bool writeMask(Manager& manager, const FilterProfileParams& filter, uint32_t mask,
               const char* kind) {
    const std::list<Key> keys = manager.filter(filter);
    ModifyProfileParams changes;
    changes.setApnTypesMask(mask);
    for (const Key& key : keys) {
        // The misplaced colon is meant.
        KIV_LOG(DEBUG,
                "kiv updating profile id:%d, tech type:%d, with %smask0x%x:", key->getProfileId(),
                static_cast<int>(key->getTechType()), kind, mask);
        manager.modifyProfile(changes, key);
    }
    return !keys.empty();
}

void writeCombined(Manager& manager, uint32_t mask, const std::string& apnName) {
    FilterProfileParams filter;
    filter.setApnName(apnName);
    writeMask(manager, filter, mask, "combined ");
}

bool writeByIpType(Manager& manager, TechType techType, IPType ipType, uint32_t mask,
                   const std::string& apnName) {
    FilterProfileParams filter = filterOf(techType);
    filter.setApnName(apnName);
    filter.setHomeIPType(ipType);
    if (writeMask(manager, filter, mask, "")) {
        return true;
    }
    KIV_LOG(DEBUG, "kiv no match found for apn name:%s, ip type:%d, tech type:%d", apnName.c_str(),
            static_cast<int>(ipType), static_cast<int>(techType));
    return false;
}

void writeByTechType(Manager& manager, TechType techType, const Masks& masks,
                     const std::string& apnName) {
    const auto write = [&](IPType ipType, uint32_t mask) {
        return writeByIpType(manager, techType, ipType, mask, apnName);
    };
    uint32_t combined = masks.v4v6;
    if (masks.v4 != 0 && !write(IPType::V4, masks.v4)) {
        combined |= masks.v4;
    }
    const uint32_t v6Total = combined | masks.v6;
    if (masks.v6 != 0 && !write(IPType::V6, masks.v6)) {
        combined = v6Total;
    }
    if (combined != 0 && !write(IPType::V4V6, combined)) {
        write(IPType::V4, combined | masks.v4);
        write(IPType::V6, v6Total);
    }
}

}  // namespace

Util::Util() : manager(&Manager::getInstance()), profileUpdateAllowed(false) {
    KIV_LOG(DEBUG, "kiv::Util: constructor");
}

Util::~Util() { KIV_LOG(DEBUG, "kiv::Util: destructor"); }

void Util::setProfileUpdateAllowed(bool allowed) {
    KIV_LOG(EVENT, "kiv::Util: profileUpdateAllowed %d", allowed ? 1 : 0);
    profileUpdateAllowed = allowed;
}

// Data calls.

Key Util::findOrCreateProfileForSetupDataCall(TechType techType, const ProfileParams& params) {
    return orNothing([&] {
        KIV_LOG(EVENT, "kiv findOrCreateProfileForSetupDataCall > %s", params.dump().c_str());
        const bool updateAllowed = profileUpdateAllowed;
        FilterProfileParams filter = filterOf(techType);
        copyApnName(params, filter);
        if (techType == TechType::Tech3gpp2 && params.hasUserName()) {
            filter.setUserName(params.getUserName());
        }
        if (!updateAllowed && params.hasHomeIPType()) {
            filter.setHomeIPType(params.getHomeIPType());
        }
        Key key = findFirst(*manager, filter);
        if (!key && !updateAllowed) {
            filter.addFilterMatchCriteria(kHomeIPLoose);
            key = findFirst(*manager, filter);
        }
        if (key) {
            KIV_LOG(EVENT, "found existing setupDataCall profile");
            if (updateAllowed) {
                KIV_LOG(EVENT, "Modifying profile with input parameters");
                manager->modifyProfile(ModifyProfileParams(params), key);
            }
        } else {
            key = manager->addProfile(AddProfileParams(params, false, techType, false));
            KIV_LOG(EVENT, "setupDataCall profile added");
        }
        KIV_LOG(EVENT, "kiv findOrCreateProfileForSetupDataCall < %s", dumpKey(key).c_str());
        return key;
    });
}

Key Util::findOrCreateProfileForEmergencyDataCall(const ProfileParams& params) {
    return orNothing([&] {
        KIV_LOG(EVENT, "kiv findOrCreateProfileForEmergencyDataCall > %s", params.dump().c_str());
        FilterProfileParams filter = filterOf(TechType::Tech3gpp);
        filter.setIsEmergencySupported(true);
        Key key;
        if (params.hasApnName()) {
            FilterProfileParams filterByName = filter;
            copyApnName(params, filterByName);
            key = findFirst(*manager, filterByName, "found an emergency profile by name");
        }
        if (!key) {
            key = findFirst(*manager, filter, "found a profile that supports emergency calls");
        }
        if (!key) {
            // Meant: persistent, unlike the profile for a data call.
            AddProfileParams add(params, true, TechType::Tech3gpp, false);
            add.setIsEmergencySupported(true);
            add.setApnTypesMask(toMask(ApnTypes::EMERGENCY));
            key = manager->addProfile(add);
            KIV_LOG(EVENT, "emergency profile created");
        }
        KIV_LOG(EVENT, "kiv findOrCreateProfileForEmergencyDataCall < %s", dumpKey(key).c_str());
        return key;
    });
}

// LTE attach.

Key Util::findOrCreateProfileForLteAttach(const ProfileParams& params) {
    return orNothing([&] {
        KIV_LOG(EVENT, "kiv findOrCreateProfileForLteAttach > %s", params.dump().c_str());
        const AttachProfile found = findAttachProfile(*manager, profileUpdateAllowed, params);
        Key key = found.key;
        if (key) {
            ModifyProfileParams changes = attachChanges(params);
            if (found.getsIPTypes) {
                copyIPTypes(params, changes);
            }
            if (found.getsApnName) {
                copyApnName(params, changes);
            }
            manager->modifyProfile(changes, key);
            KIV_LOG(EVENT, "kiv Modifying profile identified for IA");
        } else {
            key = manager->addProfile(AddProfileParams(params, true, TechType::Tech3gpp, true));
            KIV_LOG(EVENT, "kiv KIV IA profile created for attach");
        }
        KIV_LOG(EVENT, "kiv findOrCreateProfileForLteAttach < %s", dumpKey(key).c_str());
        return key;
    });
}

bool Util::matchLteAttachProfileId(int profileId, const ProfileParams& params) {
    return orNothing([&] {
        KIV_LOG(EVENT, "kiv matchLteAttachProfileId > Profile id = %d Input Params = %s", profileId,
                params.dump().c_str());
        FilterProfileParams filter = filterOf(TechType::Tech3gpp);
        filter.setFilterByProfileId(profileId);
        const Key key = findFirst(*manager, filter);
        const std::optional<ProfileParams> profile = key ? manager->getProfile(key) : std::nullopt;
        if (profile) {
            if (!acceptableForAttach(*profile)) {
                KIV_LOG(ERROR,
                        "Profile id %d is a KIV profile which is not an IA profile, cannot be used "
                        "for attach",
                        profileId);
                return false;
            }
            FilterProfileParams wanted;
            copyApnName(params, wanted);
            copyIPTypes(params, wanted);
            copyCredentials(params, wanted);
            if (!profileUpdateAllowed && !profile->getIsKivProfile()) {
                wanted.addFilterMatchCriteria(kHomeIPLoose | kRoamIPLoose);
            }
            if (manager->match(wanted, key)) {
                KIV_LOG(EVENT, "kiv matchLteAttachList < %d", profileId);
                return true;
            }
        }
        KIV_LOG(EVENT, "kiv matchLteAttachProfileId < did not match input params");
        return false;
    });
}

// APN classes.

void Util::updateModemProfileByApnClass(const std::list<ProfileParams>& profiles3gpp,
                                        const std::list<ProfileParams>& profiles3gpp2) {
    orNothing([&] {
        KIV_LOG(EVENT, "kiv updateModemProfileByApnClass > ");
        KIV_LOG(EVENT, "  3gpp:");
        logDumps(profiles3gpp);
        KIV_LOG(EVENT, "  3gpp2:");
        logDumps(profiles3gpp2);
        for (const ProfileParams& params : profiles3gpp) {
            KIV_LOG(DEBUG, "kiv update 3gpp modem profile by APN class for %s",
                    params.dump().c_str());
            rewriteByApnClass(*manager, params, TechType::Tech3gpp);
        }
        for (const ProfileParams& params : profiles3gpp2) {
            KIV_LOG(DEBUG, "kiv update 3gpp2 modem profile by APN class for %s",
                    params.dump().c_str());
            rewriteByApnClass(*manager, params, TechType::Tech3gpp2);
        }
        KIV_LOG(EVENT, "kiv updateModemProfileByApnClass < OK");
    });
}

void Util::updateModemProfileByApnClassAndTechType(const ProfileParams& params, TechType techType) {
    orNothing([&] { rewriteByApnClass(*manager, params, techType); });
}

// APN types.

void Util::updateAPNTypeBitmaskOnModemProfile(const std::list<ProfileParams>& profiles) {
    orNothing([&] {
        KIV_LOG(EVENT, "kiv updateAPNTypeBitmaskOnModemProfile > ");
        logDumps(profiles);
        const bool updateAllowed = profileUpdateAllowed;
        for (const auto& [apnName, masks] : gatherMasks(profiles)) {
            // The misplaced colon is meant.
            KIV_LOG(DEBUG, "kiv processing APN name %s, V4 mask:0x%x, v6 mask0x%x:, v4v6 mask:0x%x",
                    apnName.c_str(), masks.v4, masks.v6, masks.v4v6);
            if (updateAllowed) {
                writeCombined(*manager, masks.v4 | masks.v6 | masks.v4v6, apnName);
            } else {
                writeByTechType(*manager, TechType::Tech3gpp, masks, apnName);
                writeByTechType(*manager, TechType::Tech3gpp2, masks, apnName);
            }
        }
        KIV_LOG(EVENT, "kiv updateAPNTypeBitmaskOnModemProfile < OK");
    });
}

void Util::handleCombinedProfileUpdate(uint32_t mask, std::string apnName) {
    orNothing([&] { writeCombined(*manager, mask, apnName); });
}

void Util::handleProfileUpdateByTechType(TechType techType, uint32_t v4Mask, uint32_t v6Mask,
                                         uint32_t v4v6Mask, std::string apnName) {
    orNothing([&] { writeByTechType(*manager, techType, {v4Mask, v6Mask, v4v6Mask}, apnName); });
}

bool Util::updateByIpType(TechType techType, IPType ipType, uint32_t mask, std::string apnName) {
    return orNothing([&] { return writeByIpType(*manager, techType, ipType, mask, apnName); });
}

}  // namespace kiv
