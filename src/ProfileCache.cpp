#include "ProfileCache.h"

#include <atomic>
#include <cstdlib>
#include <limits>
#include <new>
#include <utility>

namespace kiv {

namespace {

constexpr const char* kTokenMissing = "ProfileCache: token is not present or expired";

/// A profile that is yet to be created; empty for an unknown technology.
std::shared_ptr<ModemProfile> makeProfile(const AddProfileParams& params) {
    switch (params.getTechType()) {
        case TechType::Tech3gpp: {
            auto profile = std::make_shared<Modem3gppProfile>(params);
            profile->setProfileName(params.getIsIAProfile() ? kKivIAProfileName : kKivProfileName);
            return profile;
        }
        case TechType::Tech3gpp2:
            return std::make_shared<Modem3gpp2Profile>(params);
    }
    return nullptr;
}

/// The report that the modem will make of a change to the profile by this library.
ProfileChangedInd echoOf(const ModemProfile& profile, ProfileChangeEvent event) {
    return {profile.getTechType(), profile.getProfileId(), event};
}

/// Without memory for the text the line is lost, and nothing else.
template <class Dumped>
void logDump(const char* label, const Dumped& dumped) {
    try {
        KIV_LOG_TEXT(EVENT, label, dumped.dump());
    } catch (const std::bad_alloc&) {
        return;
    }
}

}  // namespace

ProfileCache::ProfileCache(EventManager& eventManager, int bindValue, RequestFunction requestFn)
    : eventManager(eventManager),
      requestFn(std::move(requestFn)),
      proxy(this->eventManager, bindValue) {
    proxy.registerProfileChangedInd([this](const ProfileChangedInd& ind) { onIndication(ind); });
    proxy.registerIndicationLost([this] { refresh(); });
}

ProfileCache::~ProfileCache() { dropAll(); }

uint64_t ProfileCache::generateToken() {
    static std::atomic<uint64_t> counter{0};
    const uint64_t token = counter.fetch_add(1);
    if (token == std::numeric_limits<uint64_t>::max()) {
        abort();
    }
    return token;
}

/// One by one, so that listeners are called in the same order with every C++ library.
void ProfileCache::dropAll() {
    for (auto& [token, profile] : contents.takeAll()) {
        profile.reset();
    }
}

/// The profile of a key; logs at missing if its token is not known.
std::optional<ProfileCache::Profile> ProfileCache::find(const std::shared_ptr<ProfileKey>& key,
                                                        LogLevel missing) {
    if (!key) {
        return std::nullopt;
    }
    std::optional<Profile> found = contents.find(key->getToken());
    if (!found) {
        LogWrapper::getInstance().log(missing, kLogTag, "%s", kTokenMissing);
    }
    return found;
}

// Requests.

bool ProfileCache::refresh() {
    try {
        readAll();
    } catch (const std::bad_alloc&) {
        proxy.readAgain();
        throw;
    }
    return true;
}

void ProfileCache::readAll() {
    if (proxy.takeIndicationLost()) {
        // The lost indication may have reported an expected change, which would then hide a change
        // by another party. A creation, taken for another party's, would be cached twice.
        contents.forgetExpectedButCreations();
    }
    // Meant: what the modem has yet to confirm stays expected.
    dropAll();
    CacheContents::Profiles read;
    std::vector<std::string> lines = {"Refreshed Profiles:"};
    for (Profile& profile : proxy.getAllProfiles()) {
        lines.push_back(CacheContents::dumpProfile(profile));
        read.emplace(generateToken(), std::move(profile));
    }
    contents.insert(read);
    for (const std::string& line : lines) {
        KIV_LOG_TEXT(EVENT, line);
    }
}

std::shared_ptr<ProfileKey> ProfileCache::add(const AddProfileParams& params) {
    // Meant: a failure uses up its token too.
    const uint64_t token = generateToken();
    const Profile profile = makeProfile(params);
    if (!profile) {
        KIV_LOG(ERROR, "ProfileCache: failed to create profile");
        return nullptr;
    }
    profile->setIsPersistent(params.getIsPersistent());
    profile->setIsKivCreated(true);
    CacheContents::Profiles added = {{token, profile}};
    // The modem reports a creation as a creation followed by a modification.
    CacheContents::Changes echoes = {echoOf(*profile, ProfileChangeEvent::Create),
                                     echoOf(*profile, ProfileChangeEvent::Modify)};
    auto key = std::make_shared<ProfileKey>(profile->getTechType(), std::nullopt, token, requestFn);
    if (!proxy.add(*profile)) {
        return nullptr;
    }
    key->setProfileId(profile->getProfileId());
    for (ProfileChangedInd& echo : echoes) {
        echo.profileId = profile->getProfileId();
    }
    profile->incRefCount();
    contents.insert(added);
    contents.expect(echoes);
    logDump("Added: ", *profile);
    return key;
}

bool ProfileCache::modify(const ModifyProfileParams& params,
                          const std::shared_ptr<ProfileKey>& key) {
    // Meant: an event here, an error in the other operations.
    const std::optional<Profile> found = find(key, LogLevel::EVENT);
    if (!found) {
        return false;
    }
    const Profile& profile = *found;
    if (!profile) {
        return true;
    }
    const Profile difference = profile->diff(params);
    if (!difference) {
        KIV_LOG(EVENT, "ProfileCache: profile is unchanged");
        return true;
    }
    const std::string line = "Diff: " + difference->dump();
    CacheContents::Changes echo = {echoOf(*profile, ProfileChangeEvent::Modify)};
    if (!proxy.modify(*difference, profile->getTechType(), profile->getProfileId())) {
        // Meant: what the modem refuses is told by the log only.
        KIV_LOG(ERROR, "ProfileCache: failed to modify modem profile");
        return true;
    }
    contents.apply(*profile, difference);
    contents.expect(echo);
    KIV_LOG_TEXT(EVENT, line);
    return true;
}

bool ProfileCache::remove(const std::shared_ptr<ProfileKey>& key) {
    const std::optional<Profile> found = find(key, LogLevel::ERROR);
    if (!found) {
        return false;
    }
    CacheContents::Changes echo;
    if (*found) {
        echo.push_back(echoOf(**found, ProfileChangeEvent::Delete));
    }
    if (!proxy.remove(key->getTechType(), key->getProfileId())) {
        // The capital is meant.
        KIV_LOG(ERROR, "ProfileCache: Failed to remove profile");
        return false;
    }
    contents.take(key->getToken());
    contents.expect(echo);
    return true;
}

bool ProfileCache::match(const FilterProfileParams& params,
                         const std::shared_ptr<ProfileKey>& key) {
    const std::optional<Profile> found = find(key, LogLevel::ERROR);
    return found && *found && (*found)->match(params);
}

std::optional<ProfileParams> ProfileCache::get(const std::shared_ptr<ProfileKey>& key) {
    const std::optional<Profile> found = find(key, LogLevel::ERROR);
    if (!found || !*found) {
        return std::nullopt;
    }
    return (*found)->get();
}

std::list<std::shared_ptr<ProfileKey>> ProfileCache::filter(const FilterProfileParams& params) {
    int unreadable = 0;
    std::list<std::shared_ptr<ProfileKey>> keys;
    // Counted one by one: where memory runs out, the keys that were made are released.
    for (const auto& [token, profile] : contents.matching(params, unreadable)) {
        auto key = std::make_shared<ProfileKey>(profile->getTechType(), profile->getProfileId(),
                                                token, requestFn);
        profile->incRefCount();
        keys.push_back(std::move(key));
    }
    for (; unreadable > 0; --unreadable) {
        KIV_LOG(ERROR, "ProfileCache: null profile");
    }
    return keys;
}

bool ProfileCache::registerExpirationListener(std::function<void()> callback,
                                              std::weak_ptr<IProfileKey> key, uint64_t token) {
    KIV_LOG(VERBOSE, "ProfileCache: registerExpirationListener %d", static_cast<int>(token));
    const std::optional<Profile> found = contents.find(token);
    if (!found) {
        KIV_LOG(ERROR, "%s", kTokenMissing);
    } else if (*found) {
        (*found)->registerExpirationListener(std::move(callback), std::move(key));
    }
    // Meant: false in every case; nobody depends on it.
    return false;
}

bool ProfileCache::releaseProfile(uint64_t token) {
    KIV_LOG(EVENT, "ProfileCache: releaseProfile token=%d", static_cast<int>(token));
    const std::optional<Profile> found = contents.find(token);
    if (!found) {
        KIV_LOG(ERROR, "%s", kTokenMissing);
        return false;
    }
    const Profile& profile = *found;
    if (!profile) {
        return false;
    }
    profile->clearExpiredListeners();
    if (profile->getRefCount() >= 2) {
        profile->decRefCount();
        return true;
    }
    if (profile->getIsPersistent() || !profile->getIsKivCreated()) {
        // Meant: the count stays, and the text says "non-persistent" of persistent profiles.
        KIV_LOG(EVENT, "ProfileCache: ignoring non-persistent or non-kiv created");
        return true;
    }
    CacheContents::Changes echo = {echoOf(*profile, ProfileChangeEvent::Delete)};
    if (!proxy.remove(profile->getTechType(), profile->getProfileId())) {
        KIV_LOG(ERROR, "ProfileCache: failed to release profile");
        return false;
    }
    profile->decRefCount();
    KIV_LOG(EVENT, "Released profile %d", profile->getProfileId());
    contents.expect(echo);
    contents.take(token);
    return true;
}

// Indications.

void ProfileCache::onIndication(ProfileChangedInd ind) {
    logDump("ProfileCache: onIndication < ", ind);
    if (contents.confirm(ind)) {
        KIV_LOG(EVENT, "ProfileCache: pending transaction confirmed");
        return;
    }
    KIV_LOG(EVENT, "ProfileCache: updating cache due to indication!");
    update(ind);
}

void ProfileCache::update(const ProfileChangedInd& ind) {
    switch (ind.event) {
        case ProfileChangeEvent::Create: {
            const uint64_t token = generateToken();
            CacheContents::Profiles created = {{token, proxy.get(ind.techType, ind.profileId)}};
            contents.insert(created);
            return;
        }
        case ProfileChangeEvent::Delete:
            for (const uint64_t token : contents.tokensOf(ind.techType, ind.profileId)) {
                contents.take(token);
            }
            return;
        case ProfileChangeEvent::Modify:
            for (const uint64_t token : contents.tokensOf(ind.techType, ind.profileId)) {
                Profile profile = proxy.get(ind.techType, ind.profileId);
                contents.exchange(token, profile);
            }
            return;
        case ProfileChangeEvent::SubscriptionChange:
        case ProfileChangeEvent::ProfileReady:
            refresh();
            return;
    }
    KIV_LOG(ERROR, "Invalid ProfileChangedEvent");
}

}  // namespace kiv
