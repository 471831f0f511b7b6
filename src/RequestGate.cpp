#include "RequestGate.h"

#include <utility>

#include "ClientRequestManager.h"
#include "ForkedChild.h"
#include "NoWaitScope.h"

namespace kiv {

namespace {

/// How many engines this thread is taking down. It waits for the end of none meanwhile, since
/// another thread that takes one down may be waiting for its.
thread_local int enginesTakenDown = 0;

}  // namespace

std::shared_ptr<ClientResponse> RequestGate::process(
    const std::shared_ptr<ClientRequest>& request) {
    if (isForkedChild()) {
        return nullptr;
    }
    std::shared_ptr<ClientResponse> response;
    if (ClientRequestManager* const entered = enter()) {
        // Also if an exception leaves, for lack of memory: whoever closes the gate waits for it.
        struct Leaver {
            RequestGate& gate;
            ~Leaver() { gate.leave(); }
        } leaver{*this};
        response = entered->processClientRequest(request);
    }
    if (!response) {
        waitUntilGone();
    }
    return response;
}

ClientRequestManager* RequestGate::enter() {
    ++inside;
    ClientRequestManager* const entered = engine.load();
    if (entered == nullptr) {
        leave();
    }
    return entered;
}

void RequestGate::leave() {
    if (--inside == 0 && engine.load() == nullptr) {
        std::lock_guard lock(mutex);
        changed.notify_all();
    }
}

void RequestGate::waitUntilGone() {
    if (NoWaitScope::isActive() || enginesTakenDown > 0) {
        return;
    }
    WaitLock lock(mutex);
    while (engine.load() == nullptr && !gone) {
        lock.wait(changed);
    }
}

void RequestGate::close() {
    std::lock_guard lock(mutex);
    engine.store(nullptr);
    closed = true;
    ++enginesTakenDown;
}

void RequestGate::waitUntilEmpty() {
    WaitLock lock(mutex);
    while (inside.load() > 0) {
        lock.wait(changed);
    }
}

void RequestGate::finish() {
    std::lock_guard lock(mutex);
    if (closed) {
        --enginesTakenDown;
    }
    engine.store(nullptr);
    gone = true;
    changed.notify_all();
}

}  // namespace kiv
