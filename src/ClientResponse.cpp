#include "ClientResponse.h"

#include <ostream>

#include "ValueText.h"

namespace kiv {

std::string toText(Status status) {
    return nameOrNumber(static_cast<int32_t>(status), {"Success", "Failure"});
}

std::ostream& operator<<(std::ostream& out, Status status) { return out << toText(status); }

std::string ClientResponse::dump() const { return toText(type) + " " + toText(status); }

std::string AddResponse::dump() const {
    return ClientResponse::dump() + " " + (key ? key->dump() : "");
}

std::string FilterResponse::dump() const {
    std::string text = ClientResponse::dump() + " ";
    for (const std::shared_ptr<IProfileKey>& key : result) {
        text += (key ? key->dump() : "null") + ",";
    }
    return text;
}

std::string MatchResponse::dump() const {
    return ClientResponse::dump() + " " + (result ? "true" : "false");
}

std::string GetResponse::dump() const {
    return ClientResponse::dump() + " " + (params ? params->dump() : "");
}

}  // namespace kiv
