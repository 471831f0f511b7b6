#ifndef KIVR_SRC_PROFILEKEY_H
#define KIVR_SRC_PROFILEKEY_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "IProfileKey.h"
#include "RequestFunction.h"

namespace kiv {

/// The one kind of key: names a cached profile by its token. See IProfileKey for threads,
/// ownership and blocking.
class ProfileKey final : public IProfileKey {
public:
    /// The cache always gives a requestFn. With an empty one registerExpirationListener throws
    /// std::bad_function_call, and the destructor posts nothing.
    ProfileKey(TechType techType, int profileId, uint64_t token, RequestFunction requestFn)
        : techType(techType), profileId(profileId), token(token), requestFn(std::move(requestFn)) {}
    /// Posts the release of the token, once.
    ~ProfileKey() override;

    int getProfileId() override { return profileId; }
    TechType getTechType() override { return techType; }
    void registerExpirationListener(std::function<void()> callback) override;
    std::string dump() override;

    /// The cache's name for the profile.
    uint64_t getToken() const { return token; }

private:
    const TechType techType;
    const int profileId;
    const uint64_t token;
    const RequestFunction requestFn;
};

/// What a modem profile keeps of a listener: what to call, and whose key it was registered with.
using ExpirationListener = std::pair<std::function<void()>, std::weak_ptr<IProfileKey>>;

/// The listener's key is gone, so that nobody waits for the call any more.
inline bool expired(const ExpirationListener& listener) { return listener.second.expired(); }

}  // namespace kiv

#endif
