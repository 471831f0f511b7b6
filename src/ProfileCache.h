#ifndef KIVR_SRC_PROFILECACHE_H
#define KIVR_SRC_PROFILECACHE_H

#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "AddProfileParams.h"
#include "CacheContents.h"
#include "EventManager.h"
#include "FilterProfileParams.h"
#include "LogWrapper.h"
#include "ModemProfile.h"
#include "ModifyProfileParams.h"
#include "ProfileChangedInd.h"
#include "ProfileKey.h"
#include "RavWdsProxy.h"
#include "RequestFunction.h"

namespace kiv {

/// The library's copy of every profile in the modem, and the keys that clients hold on them.
///
/// Threads: everything on the worker thread, but for dump, which any thread may call at any
/// moment.
/// Ownership: owned by the ClientRequestManager; owns the profiles and the proxy. A key does not
/// own its profile: it names it by a token.
/// Blocking: as the modem's answers do, up to 1000 ms for each request.
/// Re-entrancy: listeners that run inside an operation must not call another.
/// Without memory an operation throws std::bad_alloc. What changes the modem takes all its memory
/// first: it throws before the modem is asked, or not at all.
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
    std::vector<std::string> dump() { return contents.dump(); }

    /// A number that no profile had yet in this process. Aborts when there are no more.
    static uint64_t generateToken();

private:
    using Profile = CacheContents::Profile;

    void readAll();
    void dropAll();
    std::optional<Profile> find(const std::shared_ptr<ProfileKey>& key, LogLevel missing);
    void update(const ProfileChangedInd& ind);

    // Constant.
    EventManager& eventManager;
    const RequestFunction requestFn;

    // Worker thread only.
    RavWdsProxy proxy;

    // Self-synchronised.
    CacheContents contents;
};

}  // namespace kiv

#endif
