#include "RequestGate.h"

#include <utility>

#include "ClientRequestManager.h"

namespace kiv {

std::shared_ptr<ClientResponse> RequestGate::process(std::shared_ptr<ClientRequest> request) {
    ClientRequestManager* const entered = enter();
    if (entered == nullptr) {
        return nullptr;
    }
    // Also if an exception leaves, for lack of memory: whoever closes the gate waits for it.
    struct Leaver {
        RequestGate& gate;
        ~Leaver() { gate.leave(); }
    } leaver{*this};
    return entered->processClientRequest(std::move(request));
}

ClientRequestManager* RequestGate::enter() {
    std::lock_guard lock(mutex);
    if (engine != nullptr) {
        ++inside;
    }
    return engine;
}

void RequestGate::leave() {
    std::lock_guard lock(mutex);
    if (--inside == 0) {
        emptied.notify_all();
    }
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
