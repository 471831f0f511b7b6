#include "Util.h"

#include <algorithm>
#include <new>
#include <string>
#include <unordered_set>
#include <utility>

#include "Conversions.h"
#include "LogWrapper.h"

namespace kiv {

namespace {

using Key = std::shared_ptr<IProfileKey>;

constexpr uint32_t kHomeIPLoose =
    toMask(FilterMatchType::HomeIPSubset | FilterMatchType::HomeIPSuperset);
constexpr uint32_t kRoamIPLoose =
    toMask(FilterMatchType::RoamIPSubset | FilterMatchType::RoamIPSuperset);

std::string dumpKey(const Key& key) { return key ? key->dump() : ""; }

/// Of several profiles that fit, the policies take the first.
Key firstOf(const std::list<Key>& keys) { return keys.empty() ? nullptr : keys.front(); }

void copyApnName(const ProfileParams& from, ProfileParams& to) {
    if (from.hasApnName()) {
        to.setApnName(from.getApnName());
    }
}

void copyIPTypes(const ProfileParams& from, ProfileParams& to) {
    if (from.hasHomeIPType()) {
        to.setHomeIPType(from.getHomeIPType());
    }
    if (from.hasRoamIPType()) {
        to.setRoamIPType(from.getRoamIPType());
    }
}

void copyCredentials(const ProfileParams& from, ProfileParams& to) {
    if (from.hasUserName()) {
        to.setUserName(from.getUserName());
    }
    if (from.hasPassword()) {
        to.setPassword(from.getPassword());
    }
    if (from.hasAuthType()) {
        to.setAuthType(from.getAuthType());
    }
}

/// What an attach profile is brought into line with, whichever it is.
ModifyProfileParams attachChanges(const ProfileParams& params) {
    ModifyProfileParams changes;
    copyCredentials(params, changes);
    if (params.hasApnTypesMask()) {
        changes.setApnTypesMask(params.getApnTypesMask());
    }
    if (params.hasMaxPdnsConnPerBlock()) {
        changes.setMaxPdnsConnPerBlock(params.getMaxPdnsConnPerBlock());
    }
    if (params.hasMaxPdnConnTimer()) {
        changes.setMaxPdnConnTimer(params.getMaxPdnConnTimer());
    }
    if (params.hasPdnReqWaitInterval()) {
        changes.setPdnReqWaitInterval(params.getPdnReqWaitInterval());
    }
    return changes;
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

Key findExactLteAttachProfile(Manager& manager, const ProfileParams& params) {
    FilterProfileParams filter = filterOf(TechType::Tech3gpp);
    copyApnName(params, filter);
    if (!params.hasApnName()) {
        KIV_LOG(EVENT, "kiv NULL apn scenario");
    }
    copyIPTypes(params, filter);
    // Meant: if the first one won't do, the others are not looked at.
    Key key = firstOf(manager.filter(filter));
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

/// A profile whose IP types need not be equal. One that can't be read is returned but not
/// accepted: it serves if nothing better is found.
Key findLooseLteAttachProfile(Manager& manager, bool updateAllowed, const ProfileParams& params,
                              ModifyProfileParams& changes, bool& accepted) {
    FilterProfileParams filter = filterOf(TechType::Tech3gpp);
    copyApnName(params, filter);
    if (updateAllowed) {
        copyIPTypes(params, changes);
    } else {
        filter.setFilterByIsKivProfile(false);
        copyIPTypes(params, filter);
        filter.addFilterMatchCriteria((params.hasHomeIPType() ? kHomeIPLoose : 0) |
                                      (params.hasRoamIPType() ? kRoamIPLoose : 0));
    }
    Key key = firstOf(manager.filter(filter));
    if (!key) {
        return nullptr;
    }
    KIV_LOG(EVENT, "kiv Found a loose match profile for attach");
    const std::optional<ProfileParams> profile = manager.getProfile(key);
    if (!profile) {
        return key;
    }
    if (!acceptableForAttach(*profile)) {
        KIV_LOG(EVENT, "It is not a KIV_IA profile. so skipping it.");
        return nullptr;
    }
    KIV_LOG(EVENT, "It is KIV_IA profile or modem profile.");
    accepted = true;
    return key;
}

/// The best existing profile; changes gets what that profile must be brought into line with.
Key findProfileForLteAttach(Manager& manager, bool updateAllowed, const ProfileParams& params,
                            ModifyProfileParams& changes) {
    if (Key exact = findExactLteAttachProfile(manager, params)) {
        return exact;
    }
    bool accepted = false;
    Key loose = findLooseLteAttachProfile(manager, updateAllowed, params, changes, accepted);
    if (accepted) {
        return loose;
    }
    copyIPTypes(params, changes);
    FilterProfileParams filter = filterOf(TechType::Tech3gpp);
    filter.setFilterByIsKivProfile(true);
    filter.setFilterByIsIAProfile(true);
    FilterProfileParams filterByName = filter;
    copyApnName(params, filterByName);
    if (Key named = firstOf(manager.filter(filterByName))) {
        KIV_LOG(EVENT, "kiv Found a KIV IA profile that matches APN name for attach");
        return named;
    }
    if (Key any = firstOf(manager.filter(filter))) {
        copyApnName(params, changes);
        KIV_LOG(EVENT, "kiv Found any KIV IA profile for attach");
        return any;
    }
    return loose;
}

void logDumps(const std::list<ProfileParams>& profiles) {
    for (const ProfileParams& params : profiles) {
        KIV_LOG(EVENT, "    %s", params.dump().c_str());
    }
}

struct Masks {
    uint32_t v4 = 0;
    uint32_t v6 = 0;
    uint32_t v4v6 = 0;
};

/// Brings the elements into the form in which they are compared, and names their APNs.
std::unordered_set<std::string> normalise(std::list<ProfileParams>& profiles) {
    std::unordered_set<std::string> apnNames;
    for (ProfileParams& params : profiles) {
        KIV_LOG(EVENT, "kiv update APN type bitmask on modem profile for %s",
                params.dump().c_str());
        if (params.hasApnName()) {
            params.setApnName(convertToLower(params.getApnName()));
            apnNames.insert(params.getApnName());
        }
        if (!params.hasApnTypesMask()) {
            params.setApnTypesMask(0);
            KIV_LOG(ERROR, "kiv APN type mask not present, setting to 0");
        }
        if (!params.hasHomeIPType()) {
            params.setHomeIPType(IPType::V4V6);
            KIV_LOG(ERROR, "kiv Home IP type not present, setting to v4v6");
        }
    }
    return apnNames;
}

/// The types wanted for the APN, by IP type.
Masks gatherMasks(const std::list<ProfileParams>& profiles, const std::string& apnName) {
    Masks masks;
    for (const ProfileParams& params : profiles) {
        if (!params.hasApnName() || params.getApnName() != apnName) {
            continue;
        }
        switch (params.getHomeIPType()) {
            case IPType::V4:
                masks.v4 |= params.getApnTypesMask();
                break;
            case IPType::V6:
                masks.v6 |= params.getApnTypesMask();
                break;
            default:
                masks.v4v6 |= params.getApnTypesMask();
                break;
        }
    }
    return masks;
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

Key Util::findOrCreateProfileForSetupDataCall(TechType techType, const ProfileParams& params) try {
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
    Key key = firstOf(manager->filter(filter));
    if (!key && !updateAllowed) {
        filter.addFilterMatchCriteria(kHomeIPLoose);
        key = firstOf(manager->filter(filter));
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
} catch (const std::bad_alloc&) {
    KIV_LOG(ERROR, "Util: out of memory");
    return nullptr;
}

Key Util::findOrCreateProfileForEmergencyDataCall(const ProfileParams& params) try {
    KIV_LOG(EVENT, "kiv findOrCreateProfileForEmergencyDataCall > %s", params.dump().c_str());
    FilterProfileParams filter = filterOf(TechType::Tech3gpp);
    filter.setIsEmergencySupported(true);
    Key key;
    if (params.hasApnName()) {
        FilterProfileParams filterByName = filter;
        copyApnName(params, filterByName);
        key = firstOf(manager->filter(filterByName));
        if (key) {
            KIV_LOG(EVENT, "found an emergency profile by name");
        }
    }
    if (!key) {
        key = firstOf(manager->filter(filter));
        if (key) {
            KIV_LOG(EVENT, "found a profile that supports emergency calls");
        }
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
} catch (const std::bad_alloc&) {
    KIV_LOG(ERROR, "Util: out of memory");
    return nullptr;
}

// LTE attach.

Key Util::findOrCreateProfileForLteAttach(const ProfileParams& params) try {
    KIV_LOG(EVENT, "kiv findOrCreateProfileForLteAttach > %s", params.dump().c_str());
    ModifyProfileParams changes = attachChanges(params);
    Key key = findProfileForLteAttach(*manager, profileUpdateAllowed, params, changes);
    if (key) {
        manager->modifyProfile(changes, key);
        KIV_LOG(EVENT, "kiv Modifying profile identified for IA");
    } else {
        key = manager->addProfile(AddProfileParams(params, true, TechType::Tech3gpp, true));
        KIV_LOG(EVENT, "kiv KIV IA profile created for attach");
    }
    KIV_LOG(EVENT, "kiv findOrCreateProfileForLteAttach < %s", dumpKey(key).c_str());
    return key;
} catch (const std::bad_alloc&) {
    KIV_LOG(ERROR, "Util: out of memory");
    return nullptr;
}

bool Util::matchLteAttachProfileId(int profileId, const ProfileParams& params) try {
    const std::string input =
        "Profile id = " + std::to_string(profileId) + " Input Params = " + params.dump();
    KIV_LOG(EVENT, "kiv matchLteAttachProfileId > %s", input.c_str());
    FilterProfileParams filter = filterOf(TechType::Tech3gpp);
    filter.setFilterByProfileId(profileId);
    const Key key = firstOf(manager->filter(filter));
    const std::optional<ProfileParams> profile = key ? manager->getProfile(key) : std::nullopt;
    if (profile) {
        if (!acceptableForAttach(*profile)) {
            KIV_LOG(ERROR,
                    "Profile id %d is a KIV profile which is not an IA profile, cannot be used for "
                    "attach",
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
} catch (const std::bad_alloc&) {
    KIV_LOG(ERROR, "Util: out of memory");
    return false;
}

// APN classes.

void Util::updateModemProfileByApnClass(const std::list<ProfileParams>& profiles3gpp,
                                        const std::list<ProfileParams>& profiles3gpp2) try {
    KIV_LOG(EVENT, "kiv updateModemProfileByApnClass > ");
    KIV_LOG(EVENT, "  3gpp:");
    logDumps(profiles3gpp);
    KIV_LOG(EVENT, "  3gpp2:");
    logDumps(profiles3gpp2);
    for (const ProfileParams& params : profiles3gpp) {
        KIV_LOG(DEBUG, "kiv update 3gpp modem profile by APN class for %s", params.dump().c_str());
        updateModemProfileByApnClassAndTechType(params, TechType::Tech3gpp);
    }
    for (const ProfileParams& params : profiles3gpp2) {
        KIV_LOG(DEBUG, "kiv update 3gpp2 modem profile by APN class for %s", params.dump().c_str());
        updateModemProfileByApnClassAndTechType(params, TechType::Tech3gpp2);
    }
    KIV_LOG(EVENT, "kiv updateModemProfileByApnClass < OK");
} catch (const std::bad_alloc&) {
    KIV_LOG(ERROR, "Util: out of memory");
}

void Util::updateModemProfileByApnClassAndTechType(const ProfileParams& params, TechType techType) {
    if (!params.hasApnClass()) {
        KIV_LOG(DEBUG, "kiv either tech type or apn class is missing");
        return;
    }
    FilterProfileParams filter = filterOf(techType);
    filter.setApnClass(params.getApnClass());
    const std::list<Key> keys = manager->filter(filter);
    if (keys.empty()) {
        KIV_LOG(DEBUG,
                "Did not find a match for APN class and tech type, create a persistent profile");
        if (!manager->addProfile(AddProfileParams(params, true, techType, false))) {
            KIV_LOG(ERROR, "Could not add profile by APN class");
        }
        return;
    }
    KIV_LOG(DEBUG, "Found a match for APN class and tech type, modify the profile");
    const ModifyProfileParams changes(params);
    for (const Key& key : keys) {
        if (!manager->modifyProfile(changes, key)) {
            KIV_LOG(ERROR, "Error while modifying profile by APN class");
        }
    }
}

// APN types.

void Util::updateAPNTypeBitmaskOnModemProfile(const std::list<ProfileParams>& profiles) try {
    KIV_LOG(EVENT, "kiv updateAPNTypeBitmaskOnModemProfile > ");
    logDumps(profiles);
    const bool updateAllowed = profileUpdateAllowed;
    std::list<ProfileParams> wanted = profiles;
    for (const std::string& apnName : normalise(wanted)) {
        const Masks masks = gatherMasks(wanted, apnName);
        // The misplaced colon is meant.
        KIV_LOG(DEBUG, "kiv processing APN name %s, V4 mask:0x%x, v6 mask0x%x:, v4v6 mask:0x%x",
                apnName.c_str(), masks.v4, masks.v6, masks.v4v6);
        if (updateAllowed) {
            handleCombinedProfileUpdate(masks.v4 | masks.v6 | masks.v4v6, apnName);
        } else {
            for (const TechType techType : {TechType::Tech3gpp, TechType::Tech3gpp2}) {
                handleProfileUpdateByTechType(techType, masks.v4, masks.v6, masks.v4v6, apnName);
            }
        }
    }
    KIV_LOG(EVENT, "kiv updateAPNTypeBitmaskOnModemProfile < OK");
} catch (const std::bad_alloc&) {
    KIV_LOG(ERROR, "Util: out of memory");
}

void Util::handleCombinedProfileUpdate(uint32_t mask, std::string apnName) {
    FilterProfileParams filter;
    filter.setApnName(std::move(apnName));
    ModifyProfileParams changes;
    changes.setApnTypesMask(mask);
    for (const Key& key : manager->filter(filter)) {
        KIV_LOG(DEBUG, "kiv updating profile id:%d, tech type:%d, with combined mask0x%x:",
                key->getProfileId(), static_cast<int>(key->getTechType()), mask);
        manager->modifyProfile(changes, key);
    }
}

void Util::handleProfileUpdateByTechType(TechType techType, uint32_t v4Mask, uint32_t v6Mask,
                                         uint32_t v4v6Mask, std::string apnName) {
    uint32_t combined = v4v6Mask;
    if (v4Mask != 0 && !updateByIpType(techType, IPType::V4, v4Mask, apnName)) {
        combined |= v4Mask;
    }
    uint32_t v6Total = combined;
    if (v6Mask != 0) {
        v6Total |= v6Mask;
        if (!updateByIpType(techType, IPType::V6, v6Mask, apnName)) {
            combined = v6Total;
        }
    }
    if (combined == 0) {
        return;
    }
    if (!updateByIpType(techType, IPType::V4V6, combined, apnName)) {
        updateByIpType(techType, IPType::V4, combined | v4Mask, apnName);
        updateByIpType(techType, IPType::V6, v6Total, apnName);
    }
}

bool Util::updateByIpType(TechType techType, IPType ipType, uint32_t mask, std::string apnName) {
    FilterProfileParams filter = filterOf(techType);
    filter.setApnName(apnName);
    filter.setHomeIPType(ipType);
    const std::list<Key> keys = manager->filter(filter);
    if (keys.empty()) {
        KIV_LOG(DEBUG, "kiv no match found for apn name:%s, ip type:%d, tech type:%d",
                apnName.c_str(), static_cast<int>(ipType), static_cast<int>(techType));
        return false;
    }
    ModifyProfileParams changes;
    changes.setApnTypesMask(mask);
    for (const Key& key : keys) {
        KIV_LOG(DEBUG,
                "kiv updating profile id:%d, tech type:%d, with mask0x%x:", key->getProfileId(),
                static_cast<int>(key->getTechType()), mask);
        manager->modifyProfile(changes, key);
    }
    return true;
}

}  // namespace kiv
