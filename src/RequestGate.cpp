#include "RequestGate.h"

#include <utility>

#include "ClientRequestManager.h"

namespace kiv {

std::shared_ptr<ClientResponse> RequestGate::process(std::shared_ptr<ClientRequest> request) {
    ClientRequestManager* entered = nullptr;
    {
        std::lock_guard lock(mutex);
        if (engine == nullptr) {
            return nullptr;
        }
        entered = engine;
        ++inside;
    }
    std::shared_ptr<ClientResponse> response = entered->processClientRequest(std::move(request));
    std::lock_guard lock(mutex);
    if (--inside == 0) {
        emptied.notify_all();
    }
    return response;
}

void RequestGate::close() {
    std::lock_guard lock(mutex);
    engine = nullptr;
}

void RequestGate::waitUntilEmpty() {
    WaitLock lock(mutex);
    while (inside > 0) {
        lock.wait(emptied);
    }
}

}  // namespace kiv
