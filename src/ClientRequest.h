#ifndef KIVR_SRC_CLIENTREQUEST_H
#define KIVR_SRC_CLIENTREQUEST_H

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "AddProfileParams.h"
#include "FilterProfileParams.h"
#include "IProfileKey.h"
#include "ModifyProfileParams.h"
#include "ProfileTypes.h"

namespace kiv {

/// What a request asks for, and a response answers. The numbers are fixed.
enum class ReqRespType : int32_t {
    Add = 0,
    Modify = 1,
    Delete = 2,
    Filter = 3,
    Match = 4,
    Get = 5,
    Callback = 6,
    Refresh = 7,
};

/// The name, or the number of a value without one.
std::string toText(ReqRespType type);
std::ostream& operator<<(std::ostream& out, ReqRespType type);

/// What a client thread asks of the worker thread: the base of one record for each ReqRespType.
///
/// Threads: built by the client thread, which waits while the worker thread reads it.
/// Ownership: std::shared_ptr; nobody keeps one after the call. The client holds it until its
/// call returns, so that the keys in it are never dropped on the worker thread.
class ClientRequest {
public:
    explicit ClientRequest(ReqRespType type) : type(type) {}
    virtual ~ClientRequest() = default;
    ClientRequest(const ClientRequest&) = delete;
    ClientRequest& operator=(const ClientRequest&) = delete;

    /// One line of text, for the log.
    virtual std::string dump() const;
    /// The same, made once for its two lines. No two threads may make the first call.
    const std::string& text() const {
        if (line.empty()) {
            line = dump();
        }
        return line;
    }

    ReqRespType getRequestType() const { return type; }

private:
    const ReqRespType type;
    mutable std::string line;
};

class AddRequest final : public ClientRequest {
public:
    explicit AddRequest(AddProfileParams params)
        : ClientRequest(ReqRespType::Add), params(std::move(params)) {}
    std::string dump() const override;
    const AddProfileParams& getAddProfileParams() const { return params; }

private:
    const AddProfileParams params;
};

class ModifyRequest final : public ClientRequest {
public:
    ModifyRequest(ModifyProfileParams params, std::shared_ptr<IProfileKey> key)
        : ClientRequest(ReqRespType::Modify), params(std::move(params)), key(std::move(key)) {}
    std::string dump() const override;
    const ModifyProfileParams& getModifyProfileParams() const { return params; }
    const std::shared_ptr<IProfileKey>& getModifyProfileKey() const { return key; }

private:
    const ModifyProfileParams params;
    const std::shared_ptr<IProfileKey> key;
};

class DeleteRequest final : public ClientRequest {
public:
    explicit DeleteRequest(std::shared_ptr<IProfileKey> key)
        : ClientRequest(ReqRespType::Delete), key(std::move(key)) {}
    std::string dump() const override;
    const std::shared_ptr<IProfileKey>& getDeleteProfileKey() const { return key; }

private:
    const std::shared_ptr<IProfileKey> key;
};

class FilterRequest final : public ClientRequest {
public:
    explicit FilterRequest(FilterProfileParams params)
        : ClientRequest(ReqRespType::Filter), params(std::move(params)) {}
    std::string dump() const override;
    const FilterProfileParams& getFilterParams() const { return params; }

private:
    const FilterProfileParams params;
};

class MatchRequest final : public ClientRequest {
public:
    MatchRequest(FilterProfileParams params, std::shared_ptr<IProfileKey> key)
        : ClientRequest(ReqRespType::Match), params(std::move(params)), key(std::move(key)) {}
    std::string dump() const override;
    const FilterProfileParams& getMatchParams() const { return params; }
    const std::shared_ptr<IProfileKey>& getMatchKey() const { return key; }

private:
    const FilterProfileParams params;
    const std::shared_ptr<IProfileKey> key;
};

class GetRequest final : public ClientRequest {
public:
    explicit GetRequest(std::shared_ptr<IProfileKey> key)
        : ClientRequest(ReqRespType::Get), key(std::move(key)) {}
    std::string dump() const override;
    const std::shared_ptr<IProfileKey>& getProfileKey() const { return key; }

private:
    const std::shared_ptr<IProfileKey> key;
};

/// What a key asks of the cache: to release its token, or to register an expiration listener.
class CallbackRequest final : public ClientRequest {
public:
    CallbackRequest() : ClientRequest(ReqRespType::Callback) {}
    std::string dump() const override;

    void setReleaseToken(uint64_t token) { releaseToken = token; }
    bool hasReleaseToken() const { return releaseToken.has_value(); }
    uint64_t getReleaseToken() const { return releaseToken.value_or(0); }

    void setExpirationInfo(std::function<void()> cb, std::weak_ptr<IProfileKey> key,
                           uint64_t token);
    bool hasExpirationInfo() const;
    std::function<void()> getExpirationCb() const { return expirationCb.value_or(nullptr); }
    std::weak_ptr<IProfileKey> getExpirationKey() const {
        return expirationKey.value_or(std::weak_ptr<IProfileKey>());
    }
    uint64_t getExpirationToken() const { return expirationToken.value_or(0); }

private:
    std::optional<uint64_t> releaseToken;
    std::optional<uint64_t> expirationToken;
    std::optional<std::function<void()>> expirationCb;
    std::optional<std::weak_ptr<IProfileKey>> expirationKey;
};

class RefreshRequest final : public ClientRequest {
public:
    explicit RefreshRequest(PDCRefreshStatus status)
        : ClientRequest(ReqRespType::Refresh), status(status) {}
    PDCRefreshStatus getRefreshStatus() const { return status; }

private:
    const PDCRefreshStatus status;
};

}  // namespace kiv

#endif
