#ifndef KIVR_SRC_REQUESTGATE_H
#define KIVR_SRC_REQUESTGATE_H

#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>

#include "NoWaitScope.h"
#include "ThreadSafety.h"

namespace kiv {

class ClientRequest;
class ClientRequestManager;
class ClientResponse;

/// The way into an engine for those who may outlive it: the keys it made, and Manager calls that
/// began before it was replaced. While the gate is open it leads to the engine; closed, every
/// request gets the empty response.
///
/// Threads: any, and those of a forked child, which has no worker thread and gets the empty
/// response at once.
/// Ownership: shared by the engine and everyone who may post to it.
/// Blocking: process waits for the worker thread. While the engine is being destroyed, process
/// waits until it is gone, so that no listener is called after its key was dropped. waitUntilEmpty
/// waits for everyone who is inside. Re-entrancy: no lock is held while the engine works.
class RequestGate {
public:
    explicit RequestGate(ClientRequestManager& engine) : engine(engine) {}

    /// The caller drops the request only when this has returned: a key that is dropped with the
    /// request may wait for the end of the engine, which waits for this call to leave.
    std::shared_ptr<ClientResponse> process(const std::shared_ptr<ClientRequest>& request)
        KIV_EXCLUDES(mutex);

    /// Nobody gets in any more. From here to finish the thread is one that must not wait.
    void close() KIV_EXCLUDES(mutex);
    /// Waits until those who are inside have left. Not for a thread that is inside itself.
    void waitUntilEmpty() KIV_EXCLUDES(mutex);
    /// The engine is gone. On the thread that closed the gate.
    void finish() KIV_EXCLUDES(mutex);

private:
    enum class State { Open, Closed, Gone };

    bool enter() KIV_EXCLUDES(mutex);
    void leave() KIV_EXCLUDES(mutex);
    void waitUntilGone() KIV_EXCLUDES(mutex);

    ClientRequestManager& engine;  ///< not there any more once the state is Gone

    // Guarded.
    std::mutex mutex;
    std::condition_variable changed;
    State state KIV_GUARDED_BY(mutex) = State::Open;
    int inside KIV_GUARDED_BY(mutex) = 0;

    /// Of the destroying thread only. A listener that the end of the cache calls may drop the key
    /// of another engine, whose destroying thread may be waiting for this one.
    std::optional<NoWaitScope> ending;
};

/// The engine's own hold on its gate. As the engine's first member it is destroyed last, and says
/// so.
class RequestGateHolder {
public:
    explicit RequestGateHolder(ClientRequestManager& engine)
        : gate(std::make_shared<RequestGate>(engine)) {}
    ~RequestGateHolder() { gate->finish(); }

    const std::shared_ptr<RequestGate>& get() const { return gate; }

private:
    const std::shared_ptr<RequestGate> gate;
};

}  // namespace kiv

#endif
