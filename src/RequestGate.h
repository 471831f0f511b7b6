#ifndef KIVR_SRC_REQUESTGATE_H
#define KIVR_SRC_REQUESTGATE_H

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
/// Threads: any. Ownership: shared by the engine and everyone who may post to it.
/// Blocking: process waits for the worker thread; waitUntilEmpty for everyone who is inside.
/// Re-entrancy: no lock is held while the engine works.
class RequestGate {
public:
    explicit RequestGate(ClientRequestManager& engine) : engine(&engine) {}
    RequestGate(const RequestGate&) = delete;
    RequestGate& operator=(const RequestGate&) = delete;

    std::shared_ptr<ClientResponse> process(std::shared_ptr<ClientRequest> request)
        KIV_EXCLUDES(mutex);

    /// Nobody gets in any more.
    void close() KIV_EXCLUDES(mutex);
    /// Waits until those who are inside have left. Not for a thread that is inside itself.
    void waitUntilEmpty() KIV_EXCLUDES(mutex);

private:
    /// The engine to go on to, or null.
    ClientRequestManager* enter() KIV_EXCLUDES(mutex);
    void leave() KIV_EXCLUDES(mutex);

    std::mutex mutex;
    std::condition_variable emptied;
    ClientRequestManager* engine KIV_GUARDED_BY(mutex);
    int inside KIV_GUARDED_BY(mutex) = 0;
};

}  // namespace kiv

#endif
