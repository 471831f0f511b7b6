#ifndef KIVR_SRC_PROFILEKEY_H
#define KIVR_SRC_PROFILEKEY_H

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "IProfileKey.h"
#include "RequestFunction.h"

namespace kiv {

/// The one kind of key: names a cached profile by its token. See IProfileKey for threads,
/// ownership and blocking.
class ProfileKey final : public IProfileKey {
public:
    /// Without a profile id for a profile that the modem is yet to create. The cache always gives a
    /// requestFn. With an empty one registerExpirationListener throws std::bad_function_call, and
    /// the destructor posts nothing.
    ProfileKey(TechType techType, std::optional<int> profileId, uint64_t token,
               RequestFunction requestFn)
        : techType(techType), profileId(profileId), token(token), requestFn(std::move(requestFn)) {}
    /// Posts the release of the token, once; nothing if there never was a profile.
    ~ProfileKey() override;

    int getProfileId() override { return profileId.value_or(-1); }
    TechType getTechType() override { return techType; }
    void registerExpirationListener(std::function<void()> callback) override;
    std::string dump() override;

    /// The modem has created the profile. Before any client has the key.
    void setProfileId(int value) { profileId = value; }

    /// The cache's name for the profile.
    uint64_t getToken() const { return token; }

private:
    const TechType techType;
    std::optional<int> profileId;
    const uint64_t token;
    const RequestFunction requestFn;
};

/// What a modem profile keeps of a listener: what to call, and whose key it was registered with.
using ExpirationListener = std::pair<std::function<void()>, std::weak_ptr<IProfileKey>>;

/// The listener's key is gone, so that nobody waits for the call any more.
inline bool expired(const ExpirationListener& listener) { return listener.second.expired(); }

}  // namespace kiv

#endif
