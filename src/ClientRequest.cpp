#include "ClientRequest.h"

#include <ostream>

#include "ValueText.h"

namespace kiv {

namespace {

std::string dumpKey(const std::shared_ptr<IProfileKey>& key) { return key ? key->dump() : ""; }

}  // namespace

std::string toText(ReqRespType type) {
    return nameOrNumber(static_cast<int32_t>(type), {"Add", "Modify", "Delete", "Filter", "Match",
                                                     "Get", "Callback", "Refresh"});
}

std::ostream& operator<<(std::ostream& out, ReqRespType type) { return out << toText(type); }

std::string ClientRequest::dump() const { return toText(type) + " "; }

std::string AddRequest::dump() const { return ClientRequest::dump() + params.dump(); }

std::string ModifyRequest::dump() const {
    return ClientRequest::dump() + dumpKey(key) + " " + params.dump();
}

std::string DeleteRequest::dump() const { return ClientRequest::dump() + dumpKey(key); }

std::string FilterRequest::dump() const {
    return ClientRequest::dump() + "params: " + params.dump();
}

std::string MatchRequest::dump() const {
    return ClientRequest::dump() + dumpKey(key) + " " + params.dump();
}

std::string GetRequest::dump() const { return ClientRequest::dump() + dumpKey(key); }

void CallbackRequest::setExpirationInfo(std::function<void()> cb, std::weak_ptr<IProfileKey> key,
                                        uint64_t token) {
    expirationCb = std::move(cb);
    expirationKey = std::move(key);
    expirationToken = token;
}

bool CallbackRequest::hasExpirationInfo() const {
    return expirationCb.has_value() && expirationKey.has_value() && expirationToken.has_value();
}

std::string CallbackRequest::dump() const {
    std::string text = ClientRequest::dump();
    if (hasReleaseToken()) {
        text += "Release " + std::to_string(getReleaseToken());
    } else if (hasExpirationInfo()) {
        const std::shared_ptr<IProfileKey> key = getExpirationKey().lock();
        // Meant: nothing stands between key and token.
        text += "Register " + (key ? key->dump() : "null") + std::to_string(getExpirationToken());
    }
    return text;
}

}  // namespace kiv
