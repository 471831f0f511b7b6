#ifndef KIVR_SRC_CLIENTRESPONSE_H
#define KIVR_SRC_CLIENTRESPONSE_H

#include <cstdint>
#include <iosfwd>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "ClientRequest.h"
#include "IProfileKey.h"
#include "ProfileParams.h"

namespace kiv {

/// The numbers are fixed.
enum class Status : int32_t { Success = 0, Failure = 1 };

/// The name, or the number of a value without one.
std::string toText(Status status);
std::ostream& operator<<(std::ostream& out, Status status);

/// The worker thread's answer to a request: the base of one record for each ReqRespType.
///
/// Threads: built by the worker thread, read by the client thread that waits for it.
/// Ownership: std::shared_ptr; the client copies the keys and parameters and drops the response.
class ClientResponse {
public:
    ClientResponse(ReqRespType type, Status status) : type(type), status(status) {}
    /// Status Success.
    explicit ClientResponse(ReqRespType type) : ClientResponse(type, Status::Success) {}
    virtual ~ClientResponse() = default;
    ClientResponse(const ClientResponse&) = delete;
    ClientResponse& operator=(const ClientResponse&) = delete;

    /// One line of text, for the log.
    virtual std::string dump() const;

    ReqRespType getResponseType() const { return type; }
    Status getStatus() const { return status; }

private:
    const ReqRespType type;
    const Status status;
};

class AddResponse final : public ClientResponse {
public:
    AddResponse(Status status, std::shared_ptr<IProfileKey> key)
        : ClientResponse(ReqRespType::Add, status), key(std::move(key)) {}
    std::string dump() const override;
    std::shared_ptr<IProfileKey> getAddProfileKey() const { return key; }

private:
    const std::shared_ptr<IProfileKey> key;
};

class ModifyResponse final : public ClientResponse {
public:
    explicit ModifyResponse(Status status) : ClientResponse(ReqRespType::Modify, status) {}
};

class DeleteResponse final : public ClientResponse {
public:
    explicit DeleteResponse(Status status) : ClientResponse(ReqRespType::Delete, status) {}
};

class FilterResponse final : public ClientResponse {
public:
    FilterResponse(Status status, std::list<std::shared_ptr<IProfileKey>> result)
        : ClientResponse(ReqRespType::Filter, status), result(std::move(result)) {}
    std::string dump() const override;
    std::list<std::shared_ptr<IProfileKey>> getFilterResult() const { return result; }

private:
    const std::list<std::shared_ptr<IProfileKey>> result;
};

class MatchResponse final : public ClientResponse {
public:
    MatchResponse(Status status, bool result)
        : ClientResponse(ReqRespType::Match, status), result(result) {}
    std::string dump() const override;
    bool getMatchResult() const { return result; }

private:
    const bool result;
};

class GetResponse final : public ClientResponse {
public:
    GetResponse(Status status, std::optional<ProfileParams> params)
        : ClientResponse(ReqRespType::Get, status), params(std::move(params)) {}
    std::string dump() const override;
    std::optional<ProfileParams> getParams() const { return params; }

private:
    const std::optional<ProfileParams> params;
};

class CallbackResponse final : public ClientResponse {
public:
    explicit CallbackResponse(Status status) : ClientResponse(ReqRespType::Callback, status) {}
};

class RefreshResponse final : public ClientResponse {
public:
    explicit RefreshResponse(Status status) : ClientResponse(ReqRespType::Refresh, status) {}
};

}  // namespace kiv

#endif
