#include "ProfileCache.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <limits>
#include <new>
#include <utility>

#include "LogWrapper.h"

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

std::string dumpProfile(const std::shared_ptr<ModemProfile>& profile) {
    return profile ? profile->dump() : "null";
}

}  // namespace

ProfileCache::ProfileCache(EventManager& eventManager, int bindValue, RequestFunction requestFn)
    : eventManager(eventManager),
      requestFn(std::move(requestFn)),
      proxy(this->eventManager, bindValue) {
    proxy.registerProfileChangedInd([this](const ProfileChangedInd& ind) { onIndication(ind); });
    proxy.registerIndicationLost([this] { refresh(); });
}

ProfileCache::~ProfileCache() {
    Entries dropped;
    {
        std::lock_guard lock(mutex);
        pending.clear();
        dropped.swap(entries);
    }
    drop(dropped);
}

uint64_t ProfileCache::generateToken() {
    static std::atomic<uint64_t> counter{0};
    const uint64_t token = counter.fetch_add(1);
    if (token == std::numeric_limits<uint64_t>::max()) {
        abort();
    }
    return token;
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
        forgetExpectedChanges();
    }
    // Meant: what the modem has yet to confirm stays expected.
    {
        Entries dropped;
        {
            std::lock_guard lock(mutex);
            dropped.swap(entries);
        }
        drop(dropped);
    }
    for (Profile& profile : proxy.getAllProfiles()) {
        insert(generateToken(), std::move(profile));
    }
    logRefreshed();
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
    if (!proxy.add(*profile)) {
        return nullptr;
    }
    try {
        profile->incRefCount();
        insert(token, profile);
        // The modem reports a creation as a creation followed by a modification.
        expect(*profile, ProfileChangeEvent::Create);
        expect(*profile, ProfileChangeEvent::Modify);
        KIV_LOG(EVENT, "Added: %s", profile->dump().c_str());
        return std::make_shared<ProfileKey>(profile->getTechType(), profile->getProfileId(), token,
                                            requestFn);
    } catch (const std::bad_alloc&) {
        // Nobody would ever release it.
        erase(token);
        proxy.remove(profile->getTechType(), profile->getProfileId());
        throw;
    }
}

bool ProfileCache::modify(const ModifyProfileParams& params,
                          const std::shared_ptr<ProfileKey>& key) {
    // Meant: an event here, an error in the other operations.
    Entry* const found = find(key, LogLevel::EVENT);
    if (!found) {
        return false;
    }
    const Profile profile = found->profile;
    if (!profile) {
        return true;
    }
    const std::shared_ptr<ModemProfile> diff = profile->diff(params);
    if (!diff) {
        KIV_LOG(EVENT, "ProfileCache: profile is unchanged");
        return true;
    }
    // What the modem reports of it must not be taken for somebody else's change, for lack of
    // memory.
    std::list<ProfileChangedInd> expected = {
        {profile->getTechType(), profile->getProfileId(), ProfileChangeEvent::Modify}};
    if (!proxy.modify(*diff, profile->getTechType(), profile->getProfileId())) {
        // Meant: what the modem refuses is told by the log only.
        KIV_LOG(ERROR, "ProfileCache: failed to modify modem profile");
        return true;
    }
    {
        std::lock_guard lock(mutex);
        found->apply(diff);
        pending.splice(pending.end(), expected);
    }
    KIV_LOG(EVENT, "Diff: %s", diff->dump().c_str());
    return true;
}

bool ProfileCache::remove(const std::shared_ptr<ProfileKey>& key) {
    const Entry* const found = find(key, LogLevel::ERROR);
    if (!found) {
        return false;
    }
    const Profile profile = found->profile;
    if (!proxy.remove(key->getTechType(), key->getProfileId())) {
        // The capital is meant.
        KIV_LOG(ERROR, "ProfileCache: Failed to remove profile");
        return false;
    }
    erase(key->getToken());
    if (profile) {
        expect(*profile, ProfileChangeEvent::Delete);
    }
    return true;
}

bool ProfileCache::match(const FilterProfileParams& params,
                         const std::shared_ptr<ProfileKey>& key) {
    const Entry* const found = find(key, LogLevel::ERROR);
    return found && found->profile && found->profile->match(params);
}

std::optional<ProfileParams> ProfileCache::get(const std::shared_ptr<ProfileKey>& key) {
    std::optional<ProfileParams> params;
    const Entry* const found = find(key, LogLevel::ERROR);
    if (found && found->profile) {
        found->profile->readInto(params.emplace());
    }
    return params;
}

std::list<std::shared_ptr<ProfileKey>> ProfileCache::filter(const FilterProfileParams& params) {
    const ProfileGlance glance = ModemProfile::glanceFor(params);
    const ModemProfile::NormalApnName name(params);
    std::vector<std::pair<uint64_t, Profile>> found;
    size_t unreadable = 0;
    {
        std::lock_guard lock(mutex);
        for (const Entry& entry : entries) {
            if (!entry.profile) {
                ++unreadable;
            } else if (glance.mayMatch(entry.summary) && entry.profile->matchNamed(params, name)) {
                found.emplace_back(entry.token, entry.profile);
            }
        }
    }
    // Outside the lock, and counted one by one: those made go again where memory runs out.
    std::list<std::shared_ptr<ProfileKey>> keys;
    for (const auto& [token, profile] : found) {
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
    const Entry* const found = find(token);
    if (!found) {
        KIV_LOG(ERROR, "%s", kTokenMissing);
    } else if (found->profile) {
        found->profile->registerExpirationListener(std::move(callback), std::move(key));
    }
    // Meant: false in every case; nobody depends on it.
    return false;
}

bool ProfileCache::releaseProfile(uint64_t token) {
    KIV_LOG(EVENT, "ProfileCache: releaseProfile token=%d", static_cast<int>(token));
    const Entry* const found = find(token);
    if (!found) {
        KIV_LOG(ERROR, "%s", kTokenMissing);
        return false;
    }
    const Profile profile = found->profile;
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
    if (!proxy.remove(profile->getTechType(), profile->getProfileId())) {
        KIV_LOG(ERROR, "ProfileCache: failed to release profile");
        return false;
    }
    profile->decRefCount();
    KIV_LOG(EVENT, "Released profile %d", profile->getProfileId());
    expect(*profile, ProfileChangeEvent::Delete);
    erase(token);
    return true;
}

// Indications.

void ProfileCache::onIndication(ProfileChangedInd ind) {
    KIV_LOG(EVENT, "ProfileCache: onIndication < %s", ind.dump().c_str());
    if (confirm(ind)) {
        KIV_LOG(EVENT, "ProfileCache: pending transaction confirmed");
        return;
    }
    KIV_LOG(EVENT, "ProfileCache: updating cache due to indication!");
    update(ind);
}

/// What was lost may have been the echo of a change of ours, which would hide one of another party.
/// Not a creation's: taken for another party's it would be cached twice.
void ProfileCache::forgetExpectedChanges() {
    std::lock_guard lock(mutex);
    pending.remove_if([](const ProfileChangedInd& expected) {
        return expected.event != ProfileChangeEvent::Create;
    });
}

void ProfileCache::update(const ProfileChangedInd& ind) {
    switch (ind.event) {
        case ProfileChangeEvent::Create: {
            const uint64_t token = generateToken();
            insert(token, proxy.get(ind.techType, ind.profileId));
            return;
        }
        case ProfileChangeEvent::Delete:
            for (const uint64_t token : tokensOf(ind.techType, ind.profileId)) {
                erase(token);
            }
            return;
        case ProfileChangeEvent::Modify:
            for (const uint64_t token : tokensOf(ind.techType, ind.profileId)) {
                replace(token, proxy.get(ind.techType, ind.profileId));
            }
            return;
        case ProfileChangeEvent::SubscriptionChange:
        case ProfileChangeEvent::ProfileReady:
            refresh();
            return;
    }
    KIV_LOG(ERROR, "Invalid ProfileChangedEvent");
}

/// Notes that the modem will report a change of ours.
void ProfileCache::expect(const ModemProfile& profile, ProfileChangeEvent event) {
    std::lock_guard lock(mutex);
    pending.push_back({profile.getTechType(), profile.getProfileId(), event});
}

/// Whether the change is one of ours; then it is not expected any more.
bool ProfileCache::confirm(const ProfileChangedInd& ind) {
    std::lock_guard lock(mutex);
    const auto found = std::find(pending.begin(), pending.end(), ind);
    if (found == pending.end()) {
        return false;
    }
    pending.erase(found);
    return true;
}

// Contents.

ProfileCache::Entry::Entry(uint64_t tokenValue, Profile profileValue)
    : token(tokenValue), profile(std::move(profileValue)) {
    summarise();
}

void ProfileCache::Entry::apply(const Profile& diff) {
    try {
        profile->apply(diff);
    } catch (const std::bad_alloc&) {
        // A part of it has changed.
        summarise();
        throw;
    }
    summarise();
}

/// With no lock held, for the profiles call their listeners: in this order with every C++ library.
void ProfileCache::drop(Entries& dropped) {
    for (Entry& entry : dropped) {
        entry.profile.reset();
    }
}

void ProfileCache::Entry::summarise() { summary = profile ? profile->summary() : 0; }

ProfileCache::Entries::iterator ProfileCache::locate(uint64_t token) {
    const auto found =
        std::lower_bound(entries.begin(), entries.end(), token,
                         [](const Entry& entry, uint64_t wanted) { return entry.token < wanted; });
    return found != entries.end() && found->token == token ? found : entries.end();
}

/// Without the lock: nobody but this thread changes the entries.
ProfileCache::Entry* ProfileCache::find(uint64_t token) {
    const auto found = locate(token);
    return found == entries.end() ? nullptr : &*found;
}

ProfileCache::Entry* ProfileCache::find(const std::shared_ptr<ProfileKey>& key, LogLevel missing) {
    if (!key) {
        return nullptr;
    }
    Entry* const found = find(key->getToken());
    if (!found) {
        LogWrapper::getInstance().log(missing, kLogTag, "%s", kTokenMissing);
    }
    return found;
}

void ProfileCache::insert(uint64_t token, Profile profile) {
    Entry entry(token, std::move(profile));
    std::lock_guard lock(mutex);
    // Tokens only grow, so that the order holds.
    entries.push_back(std::move(entry));
}

void ProfileCache::replace(uint64_t token, Profile profile) {
    Entry entry(token, std::move(profile));
    {
        std::lock_guard lock(mutex);
        const auto found = locate(token);
        if (found != entries.end()) {
            std::swap(*found, entry);
        }
    }
    // The profile of before goes here, outside the lock: it calls its listeners.
}

void ProfileCache::erase(uint64_t token) {
    Profile dropped;
    {
        std::lock_guard lock(mutex);
        const auto found = locate(token);
        if (found != entries.end()) {
            dropped.swap(found->profile);
            entries.erase(found);
        }
    }
    // The profile goes here, outside the lock: it calls its listeners.
}

std::vector<uint64_t> ProfileCache::tokensOf(TechType techType, int profileId) {
    std::vector<uint64_t> tokens;
    std::lock_guard lock(mutex);
    for (const Entry& entry : entries) {
        const Profile& profile = entry.profile;
        if (profile && profile->getTechType() == techType && profile->getProfileId() == profileId) {
            tokens.push_back(entry.token);
        }
    }
    return tokens;
}

void ProfileCache::logRefreshed() {
    std::vector<std::string> lines;
    {
        std::lock_guard lock(mutex);
        for (const Entry& entry : entries) {
            lines.push_back(dumpProfile(entry.profile));
        }
    }
    KIV_LOG(EVENT, "Refreshed Profiles:");
    for (const std::string& line : lines) {
        KIV_LOG_TEXT(EVENT, line);
    }
}

std::vector<std::string> ProfileCache::dump() {
    std::lock_guard lock(mutex);
    std::vector<std::string> lines = {"Cache:"};
    for (const Entry& entry : entries) {
        lines.push_back("  " + std::to_string(entry.token) + ": " + dumpProfile(entry.profile));
    }
    lines.push_back("Pending:");
    for (const ProfileChangedInd& ind : pending) {
        lines.push_back("  " + ind.dump());
    }
    return lines;
}

}  // namespace kiv
