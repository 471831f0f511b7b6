#ifndef KIVR_SRC_CACHECONTENTS_H
#define KIVR_SRC_CACHECONTENTS_H

#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "FilterProfileParams.h"
#include "ModemProfile.h"
#include "ProfileChangedInd.h"
#include "ThreadSafety.h"

namespace kiv {

/// What the cache holds: the profiles by their tokens, and the changes by this library that the
/// modem has yet to report.
///
/// Threads: dump on any thread at any moment; everything else on the worker thread, which alone
/// changes the contents and the settings of the profiles. The mutex is there for dump.
/// Ownership: owned by the ProfileCache; shares the profiles with whoever asks for them.
/// Blocking: never for long. The mutex is held neither while a line is logged nor while a profile
/// is destroyed, which calls its listeners: what leaves the contents is handed to the caller.
/// Re-entrancy: calls nobody but the profiles.
class CacheContents {
public:
    /// Empty for a profile that the modem would not tell.
    using Profile = std::shared_ptr<ModemProfile>;
    using Profiles = std::map<uint64_t, Profile>;
    using Changes = std::list<ProfileChangedInd>;

    // These need no memory: the caller has made the profiles and changes before asking the modem.
    /// Moves all of added here.
    void insert(Profiles& added) KIV_EXCLUDES(mutex);
    /// Leaves the profile of before with the caller.
    void exchange(uint64_t token, Profile& profile) KIV_EXCLUDES(mutex);
    Profile take(uint64_t token) KIV_EXCLUDES(mutex);
    Profiles takeAll() KIV_EXCLUDES(mutex);
    /// Changes one of the profiles; difference loses its texts.
    void apply(ModemProfile& profile, const Profile& difference) KIV_EXCLUDES(mutex);
    /// Moves all of changes here: the modem will report them.
    void expect(Changes& changes) KIV_EXCLUDES(mutex);
    /// Whether the change is an expected one; then it is not expected any more.
    bool confirm(const ProfileChangedInd& ind) KIV_EXCLUDES(mutex);
    /// Those of profiles that the library creates stay expected.
    void forgetExpectedButCreations() KIV_EXCLUDES(mutex);

    /// No value if the token is not known.
    std::optional<Profile> find(uint64_t token) KIV_EXCLUDES(mutex);
    /// The profiles that match; counts those that are empty.
    std::vector<Profiles::value_type> matching(const FilterProfileParams& filter, int& unreadable)
        KIV_EXCLUDES(mutex);
    std::vector<uint64_t> tokensOf(TechType techType, int profileId) KIV_EXCLUDES(mutex);

    std::vector<std::string> dump() KIV_EXCLUDES(mutex);
    static std::string dumpProfile(const Profile& profile);

private:
    std::mutex mutex;
    Profiles profiles KIV_GUARDED_BY(mutex);
    Changes expected KIV_GUARDED_BY(mutex);  ///< the earliest first
};

}  // namespace kiv

#endif
