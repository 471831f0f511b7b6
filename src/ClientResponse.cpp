#include "ClientResponse.h"

#include <ostream>
#include <utility>

namespace kiv {

std::string toText(Status status) {
    switch (status) {
        case Status::Success:
            return "Success";
        case Status::Failure:
            return "Failure";
    }
    return std::to_string(static_cast<int32_t>(status));
}

std::ostream& operator<<(std::ostream& out, Status status) { return out << toText(status); }

std::string ClientResponse::dump() const { return toText(type) + " " + toText(status); }

AddResponse::AddResponse(Status status, std::shared_ptr<IProfileKey> key)
    : ClientResponse(ReqRespType::Add, status), key(std::move(key)) {}

std::string AddResponse::dump() const {
    return ClientResponse::dump() + " " + (key ? key->dump() : "");
}

FilterResponse::FilterResponse(Status status, std::list<std::shared_ptr<IProfileKey>> result)
    : ClientResponse(ReqRespType::Filter, status), result(std::move(result)) {}

std::string FilterResponse::dump() const {
    std::string text = ClientResponse::dump() + " ";
    for (const std::shared_ptr<IProfileKey>& key : result) {
        text += (key ? key->dump() : "null") + ",";
    }
    return text;
}

MatchResponse::MatchResponse(Status status, bool result)
    : ClientResponse(ReqRespType::Match, status), result(result) {}

std::string MatchResponse::dump() const {
    return ClientResponse::dump() + " " + (result ? "true" : "false");
}

GetResponse::GetResponse(Status status, std::optional<ProfileParams>&& params)
    : ClientResponse(ReqRespType::Get, status), params(std::move(params)) {}

std::string GetResponse::dump() const {
    std::string text = params ? params->dump() : "";
    text.insert(0, ClientResponse::dump() + " ");
    return text;
}

}  // namespace kiv
