#include "ProfileKey.h"

#include <new>

#include "ClientRequest.h"
#include "ClientResponse.h"
#include "LogWrapper.h"
#include "ValueText.h"

namespace kiv {

IProfileKey::IProfileKey() = default;
IProfileKey::~IProfileKey() = default;

ProfileKey::~ProfileKey() {
    try {
        auto request = std::make_shared<CallbackRequest>();
        request->setReleaseToken(token);
        requestFn(request);
    } catch (const std::bad_alloc&) {
        KIV_LOG(ERROR, "ProfileKey: out of memory, token=%d is not released",
                static_cast<int>(token));
    } catch (const std::bad_function_call&) {
        // A key that no cache made has nobody to whom it could be released.
    }
    KIV_LOG(DEBUG, "~ProfileKey");
}

void ProfileKey::registerExpirationListener(std::function<void()> callback) {
    try {
        auto request = std::make_shared<CallbackRequest>();
        request->setExpirationInfo(std::move(callback), weak_from_this(), token);
        requestFn(request);
    } catch (const std::bad_alloc&) {
        KIV_LOG(ERROR, "ProfileKey: out of memory, listener is not registered");
    }
}

std::string ProfileKey::dump() {
    std::string text;
    appendText(text, techType);
    text.append(":").append(std::to_string(profileId));
    text.append(" token=").append(std::to_string(token));
    return text;
}

}  // namespace kiv
