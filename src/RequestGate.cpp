#include "RequestGate.h"

#include "ClientRequestManager.h"
#include "ForkedChild.h"

namespace kiv {

std::shared_ptr<ClientResponse> RequestGate::process(
    const std::shared_ptr<ClientRequest>& request) {
    if (isForkedChild()) {
        return nullptr;
    }
    if (ClientRequestManager::ofThisThread() == &engine) {
        // Also when the gate is closed: the engine joins its worker before it is destroyed, and a
        // key that the item in hand drops is still released.
        return engine.processClientRequest(request);
    }
    std::shared_ptr<ClientResponse> response;
    if (enter()) {
        // Also if an exception leaves, for lack of memory: the destroying thread waits for it.
        struct Leaver {
            RequestGate& gate;
            ~Leaver() { gate.leave(); }
        } leaver{*this};
        response = engine.processClientRequest(request);
    }
    if (!response) {
        waitUntilGone();
    }
    return response;
}

bool RequestGate::enter() {
    std::lock_guard lock(mutex);
    inside += state == State::Open ? 1 : 0;
    return state == State::Open;
}

void RequestGate::leave() {
    std::lock_guard lock(mutex);
    if (--inside == 0) {
        changed.notify_all();
    }
}

void RequestGate::waitUntilGone() {
    if (NoWaitScope::isActive()) {
        return;
    }
    WaitLock lock(mutex);
    while (state == State::Closed) {
        lock.wait(changed);
    }
}

void RequestGate::close() {
    std::lock_guard lock(mutex);
    state = State::Closed;
    ending.emplace();
}

void RequestGate::waitUntilEmpty() {
    WaitLock lock(mutex);
    while (inside > 0) {
        lock.wait(changed);
    }
}

void RequestGate::finish() {
    std::lock_guard lock(mutex);
    state = State::Gone;
    ending.reset();
    changed.notify_all();
}

}  // namespace kiv
