#ifndef KIVR_SRC_PROFILECACHE_H
#define KIVR_SRC_PROFILECACHE_H

#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "AddProfileParams.h"
#include "EventManager.h"
#include "FilterProfileParams.h"
#include "LogWrapper.h"
#include "ModemProfile.h"
#include "ModifyProfileParams.h"
#include "ProfileChangedInd.h"
#include "ProfileKey.h"
#include "RavWdsProxy.h"
#include "RequestFunction.h"
#include "ThreadSafety.h"

namespace kiv {

/// The library's copy of every profile in the modem, and the keys that clients hold on them.
///
/// Threads: everything on the worker thread, but for dump, which any thread may call at any
/// moment. Only the worker thread changes the cache; its mutex is there for dump, and is never
/// held while the modem is asked, a line is logged or a profile is dropped, since a dropped
/// profile calls its listeners.
/// Ownership: owned by the ClientRequestManager; owns the profiles and the proxy. A key does not
/// own its profile: it names it by a token.
/// Blocking: as the modem's answers do, up to 1000 ms for each request.
/// Re-entrancy: listeners that run inside an operation must not call another.
class ProfileCache {
public:
    /// Does not read the modem: the cache is empty until the first refresh.
    ProfileCache(EventManager& eventManager, int bindValue, RequestFunction requestFn);
    ~ProfileCache();
    ProfileCache(const ProfileCache&) = delete;
    ProfileCache& operator=(const ProfileCache&) = delete;

    /// Drops every profile and reads all of them from the modem again. Always true.
    bool refresh();
    /// Creates a profile in the modem. Empty on failure.
    std::shared_ptr<ProfileKey> add(const AddProfileParams& params);
    /// False if the key's profile is gone; a modem that refuses is only logged.
    bool modify(const ModifyProfileParams& params, const std::shared_ptr<ProfileKey>& key);
    /// Deletes the profile from the modem, whoever holds keys to it.
    bool remove(const std::shared_ptr<ProfileKey>& key);
    bool match(const FilterProfileParams& params, const std::shared_ptr<ProfileKey>& key);
    std::optional<ProfileParams> get(const std::shared_ptr<ProfileKey>& key);
    /// A new key for each profile that matches.
    std::list<std::shared_ptr<ProfileKey>> filter(const FilterProfileParams& params);
    /// Always false, also when the listener was stored.
    bool registerExpirationListener(std::function<void()> callback, std::weak_ptr<IProfileKey> key,
                                    uint64_t token);
    /// A key was dropped. With the last one goes a profile that the library created as
    /// non-persistent.
    bool releaseProfile(uint64_t token);
    /// The modem says that a profile changed, perhaps by an operation of ours.
    void onIndication(ProfileChangedInd ind);

    /// The profiles and the indications that are still expected. Any thread.
    std::vector<std::string> dump() KIV_EXCLUDES(mutex);

    /// A number that no profile had yet in this process. Aborts when there are no more.
    static uint64_t generateToken();

private:
    using Profile = std::shared_ptr<ModemProfile>;

    struct Entry {
        Entry(uint64_t token, Profile profile);
        /// Changes the profile, which must be there.
        void apply(const Profile& diff);

        uint64_t token;
        uint64_t summary = 0;  ///< the profile's, kept here so that a search need not read it
        Profile profile;       ///< empty if the modem would not tell

    private:
        void summarise();
    };
    using Entries = std::vector<Entry>;

    void readAll();
    static void drop(Entries& dropped);
    void forgetExpectedChanges();
    /// The entry of the token, until the cache next changes; null if the token is not known.
    Entry* find(uint64_t token) KIV_UNCHECKED;
    /// The same for a key; logs at missing if its token is not known.
    Entry* find(const std::shared_ptr<ProfileKey>& key, LogLevel missing);
    /// Where the token is, or the end.
    Entries::iterator locate(uint64_t token) KIV_REQUIRES(mutex);
    void insert(uint64_t token, Profile profile) KIV_EXCLUDES(mutex);
    void replace(uint64_t token, Profile profile) KIV_EXCLUDES(mutex);
    void erase(uint64_t token) KIV_EXCLUDES(mutex);
    std::vector<uint64_t> tokensOf(TechType techType, int profileId) KIV_EXCLUDES(mutex);
    void logRefreshed() KIV_EXCLUDES(mutex);

    void expect(const ModemProfile& profile, ProfileChangeEvent event) KIV_EXCLUDES(mutex);
    bool confirm(const ProfileChangedInd& ind) KIV_EXCLUDES(mutex);
    void update(const ProfileChangedInd& ind);

    // Constant.
    EventManager& eventManager;
    const RequestFunction requestFn;

    // Worker thread only.
    RavWdsProxy proxy;

    // Guarded; so are the settings of the profiles within.
    std::mutex mutex;
    Entries entries KIV_GUARDED_BY(mutex);  ///< by token, the smallest first
    std::list<ProfileChangedInd> pending KIV_GUARDED_BY(mutex);
};

}  // namespace kiv

#endif
