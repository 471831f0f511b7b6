#ifndef KIVR_SRC_REQUESTGATE_H
#define KIVR_SRC_REQUESTGATE_H

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>

#include "ThreadSafety.h"

namespace kiv {

class ClientRequest;
class ClientRequestManager;
class ClientResponse;

/// The way into an engine for those who may outlive it: the keys it made, and Manager calls that
/// began before it was replaced. While the gate is open it leads to the engine; closed, every
/// request gets the empty answer.
///
/// Threads: any, and those of a forked child, which has no worker thread and gets the empty answer
/// at once. Ownership: shared by the engine and everyone who may post to it.
/// Blocking: process waits for the worker thread, and while the engine goes away for its end: a
/// listener whose key was dropped then is not called any more. waitUntilEmpty waits for everyone
/// who is inside.
/// Re-entrancy: no lock is held while the engine works.
class RequestGate {
public:
    explicit RequestGate(ClientRequestManager& engine) : engine(&engine) {}
    RequestGate(const RequestGate&) = delete;
    RequestGate& operator=(const RequestGate&) = delete;

    /// The caller keeps the request: a key that goes with it waits, when it is dropped, for an
    /// engine that goes away, which waits for this call to leave.
    std::shared_ptr<ClientResponse> process(const std::shared_ptr<ClientRequest>& request)
        KIV_EXCLUDES(mutex);

    /// Nobody gets in any more. Called on the thread that then takes the engine down.
    void close() KIV_EXCLUDES(mutex);
    /// Waits until those who are inside have left. Not for a thread that is inside itself.
    void waitUntilEmpty() KIV_EXCLUDES(mutex);
    /// The engine is gone. On the thread that closed the gate, if it was closed.
    void finish() KIV_EXCLUDES(mutex);

private:
    /// The engine to go on to, or null: then there is nothing to leave.
    ClientRequestManager* enter() KIV_EXCLUDES(mutex);
    void leave() KIV_EXCLUDES(mutex);
    void waitUntilGone() KIV_EXCLUDES(mutex);

    // Self-synchronised. Whoever enters counts first and looks for the engine then, and whoever
    // closes the gate does it the other way round, so that one of the two sees the other.
    std::atomic<int> inside{0};
    std::atomic<ClientRequestManager*> engine;

    // Guarded.
    std::mutex mutex;
    std::condition_variable changed;
    bool closed KIV_GUARDED_BY(mutex) = false;
    bool gone KIV_GUARDED_BY(mutex) = false;
};

/// The engine's own hold on its gate. As the engine's first member it is destroyed last, and says
/// so.
class RequestGateHolder {
public:
    explicit RequestGateHolder(ClientRequestManager& engine)
        : gate(std::make_shared<RequestGate>(engine)) {}
    ~RequestGateHolder() { gate->finish(); }
    RequestGateHolder(const RequestGateHolder&) = delete;
    RequestGateHolder& operator=(const RequestGateHolder&) = delete;

    const std::shared_ptr<RequestGate>& get() const { return gate; }

private:
    const std::shared_ptr<RequestGate> gate;
};

}  // namespace kiv

#endif
