#ifndef KIVR_SRC_CLIENTREQUESTMANAGER_H
#define KIVR_SRC_CLIENTREQUESTMANAGER_H

#include <sys/types.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "ClientRequest.h"
#include "ClientResponse.h"
#include "EventManager.h"
#include "ProfileCache.h"
#include "RequestFunction.h"
#include "RequestGate.h"
#include "Semaphore.h"
#include "ThreadSafety.h"

namespace kiv {

/// The engine: one worker thread with the event loop and the cache, and a mailbox of one slot for
/// the request that the worker is to serve next, while its client waits for the response.
///
/// Threads: any number of clients in processClientRequest, served one at a time in the order in
/// which they queue; one that comes while the worker serves another first waits for the lock, which
/// keeps no order. None waits for another to take its response. Everything else of the engine
/// happens on the worker thread.
/// Ownership: owned by Manager. Keys and callers that may outlive it come in through the gate.
/// Blocking: processClientRequest waits until the worker has answered or the engine goes away;
/// then it returns the empty response. The destructor waits for the item in hand and for every
/// client to leave; requests to the modem fail from then on. It must not run on a thread that must
/// not wait, nor in a forked child.
/// Re-entrancy: on a thread that must not wait (NoWaitScope), a key's release is carried out after
/// the worker's item in hand; anything else is refused.
/// ClientRequestManager.pml beside this file models how clients, the worker and the destructor deal
/// with each other; who changes that changes both, and runs script/model.
class ClientRequestManager {
public:
    /// Throws std::system_error if the worker thread can't be started, and std::bad_alloc.
    explicit ClientRequestManager(int bindValue);
    ~ClientRequestManager();
    ClientRequestManager(const ClientRequestManager&) = delete;
    ClientRequestManager& operator=(const ClientRequestManager&) = delete;

    /// Empty if the request could not be signalled, was refused, or the engine goes away. Of no
    /// request's class if there was no memory to carry it out, wholly or in part.
    std::shared_ptr<ClientResponse> processClientRequest(
        const std::shared_ptr<ClientRequest>& clientRequest) KIV_EXCLUDES(mutex);

    /// The same for callers that may outlive the engine.
    const std::shared_ptr<RequestGate>& getGate() const { return gate.get(); }

    /// The cache's dump. Any thread; does not wait for the worker.
    std::vector<std::string> dump() { return profileCache.dump(); }

private:
    /// What writing to the mailbox's eventfd gave.
    struct Signal {
        ssize_t written = sizeof(uint64_t);
        int error = 0;
        bool isSent() const { return written == static_cast<ssize_t>(sizeof(uint64_t)); }
    };
    struct Turn;
    using Turns = std::list<Turn>;
    /// A client's stay with the engine. All of it is guarded by the mutex but the semaphore.
    struct Turn {
        const ClientRequest* request = nullptr;
        std::shared_ptr<ClientResponse> response{};
        Signal signal{};
        /// The client may leave. Posted once, by whoever made the turn one of those taken.
        Semaphore over{};
        Turns* place = nullptr;  ///< the list that it is in; null before the first
    };

    RequestFunction makeRequestFunction() const;
    void runKivThread();
    void endWorker();
    static void handleClientRequest(int fd, void* arg);

    std::shared_ptr<ClientResponse> processWithoutWaiting(
        const std::shared_ptr<ClientRequest>& clientRequest);
    Signal signal() const;
    Turns::iterator takeTurn(WaitLock& lock) KIV_REQUIRES(mutex);
    void signalFor(Turns::iterator turn) KIV_EXCLUDES(mutex);
    void passMailbox() KIV_REQUIRES(mutex);
    void move(Turns::iterator turn, Turns& to) KIV_REQUIRES(mutex);
    void turnClientsAway() KIV_EXCLUDES(mutex);
    void serveRequest() KIV_EXCLUDES(mutex);

    std::shared_ptr<ClientResponse> respond(const ClientRequest& served) KIV_REQUIRES(mutex);
    std::shared_ptr<ClientResponse> dispatch(const ClientRequest& served) KIV_REQUIRES(mutex);
    std::shared_ptr<ClientResponse> add(const ClientRequest& served) KIV_REQUIRES(mutex);
    std::shared_ptr<ClientResponse> modify(const ClientRequest& served) KIV_REQUIRES(mutex);
    std::shared_ptr<ClientResponse> remove(const ClientRequest& served) KIV_REQUIRES(mutex);
    std::shared_ptr<ClientResponse> filter(const ClientRequest& served) KIV_REQUIRES(mutex);
    std::shared_ptr<ClientResponse> match(const ClientRequest& served) KIV_REQUIRES(mutex);
    std::shared_ptr<ClientResponse> get(const ClientRequest& served) KIV_REQUIRES(mutex);
    std::shared_ptr<ClientResponse> callback(const ClientRequest& served) KIV_REQUIRES(mutex);
    std::shared_ptr<ClientResponse> refresh(const ClientRequest& served) KIV_REQUIRES(mutex);

    /// The request, if it is of the class and may be carried out now; else null.
    template <class Request>
    const Request* admit(const ClientRequest& served) const KIV_REQUIRES(mutex) {
        return refreshBlocked ? nullptr : dynamic_cast<const Request*>(&served);
    }

    // Constant.
    const RequestGateHolder gate;
    /// What a request gets if there is no memory to carry it out: of no request's class, and here
    /// from the start.
    const std::shared_ptr<ClientResponse> outOfMemory =
        std::make_shared<ClientResponse>(ReqRespType::Callback, Status::Failure);

    // Guarded. The worker holds the mutex while it carries out a request.
    std::mutex mutex;
    /// At most one: whose request the worker is to serve.
    Turns mailbox KIV_GUARDED_BY(mutex);
    /// Those who came while the mailbox was taken.
    Turns waiting KIV_GUARDED_BY(mutex);
    /// Those who are over, or about to be: their clients have not left yet.
    Turns taken KIV_GUARDED_BY(mutex);
    /// Those who were served and got no response.
    Turns unanswered KIV_GUARDED_BY(mutex);
    /// Nobody's. Turns are never destroyed, and there is one from the start: if there is no memory
    /// for another one, clients wait for one that is given back, in no order.
    Turns spares KIV_GUARDED_BY(mutex) = Turns(1);
    std::condition_variable turnGivenBack;
    int waitingForATurn KIV_GUARDED_BY(mutex) = 0;
    /// The engine goes away: clients leave without a response.
    bool closing KIV_GUARDED_BY(mutex) = false;

    std::thread workerThread;

    // Self-synchronised.
    std::atomic<bool> running{false};

    // Constant once constructed.
    int requestFd = -1;

    // Self-synchronised, and worker thread only.
    EventManager eventManager;
    ProfileCache profileCache;

    // Guarded.
    bool refreshBlocked KIV_GUARDED_BY(mutex);
};

}  // namespace kiv

#endif
