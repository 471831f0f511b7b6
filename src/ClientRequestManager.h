#ifndef KIVR_SRC_CLIENTREQUESTMANAGER_H
#define KIVR_SRC_CLIENTREQUESTMANAGER_H

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "ClientRequest.h"
#include "ClientResponse.h"
#include "EventManager.h"
#include "Mailbox.h"
#include "ProfileCache.h"
#include "RequestFunction.h"
#include "RequestGate.h"

namespace kiv {

/// The engine: one worker thread with the event loop and the cache, the mailbox through which
/// clients reach it, and the table of what each request does.
///
/// Threads: any number of clients in processClientRequest, served one at a time in the order in
/// which they came. Everything else of the engine happens on the worker thread.
/// Ownership: owned by Manager. Keys and callers that may outlive it come in through the gate.
/// Blocking: processClientRequest waits until the worker has answered or the engine ends; then it
/// returns the empty response. The destructor waits for the item in hand, modem requests included,
/// and for every client to leave. It must not run on a thread that must not wait.
/// Re-entrancy: on a thread that must not wait (NoWaitScope), a key's release is carried out after
/// the worker's item in hand; anything else is refused.
class ClientRequestManager {
public:
    /// Throws std::system_error if the worker thread can't be started, and std::bad_alloc.
    explicit ClientRequestManager(int bindValue);
    ~ClientRequestManager();

    /// Empty if the request could not be signalled, was refused, or the engine ends. Of no
    /// request's class if there was no memory to carry it out, wholly or in part.
    std::shared_ptr<ClientResponse> processClientRequest(
        const std::shared_ptr<ClientRequest>& request);

    /// The event callback of the mailbox's eventfd; arg is the engine. Worker thread.
    static void handleClientRequest(int fd, void* arg);

    /// The same as processClientRequest for callers that may outlive the engine.
    const std::shared_ptr<RequestGate>& getGate() const { return gate.get(); }

    /// The engine whose worker thread this is; null for all other threads.
    static const ClientRequestManager* ofThisThread();

    /// The cache's dump. Any thread; does not wait for the worker.
    std::vector<std::string> dump() { return profileCache.dump(); }

private:
    RequestFunction makeRequestFunction() const;
    void runKivThread();
    void endWorker();
    void deferRelease(const std::shared_ptr<ClientRequest>& request);

    std::shared_ptr<ClientResponse> respond(const ClientRequest& served);
    std::shared_ptr<ClientResponse> dispatch(const ClientRequest& served);
    std::shared_ptr<ClientResponse> add(const ClientRequest& served);
    std::shared_ptr<ClientResponse> modify(const ClientRequest& served);
    std::shared_ptr<ClientResponse> remove(const ClientRequest& served);
    std::shared_ptr<ClientResponse> filter(const ClientRequest& served);
    std::shared_ptr<ClientResponse> match(const ClientRequest& served);
    std::shared_ptr<ClientResponse> get(const ClientRequest& served);
    std::shared_ptr<ClientResponse> callback(const ClientRequest& served);
    std::shared_ptr<ClientResponse> refresh(const ClientRequest& served);

    /// The request, if it is of the class and may be carried out now; else null.
    template <class Request>
    const Request* admit(const ClientRequest& served) const {
        return refreshBlocked ? nullptr : dynamic_cast<const Request*>(&served);
    }

    // Constant.
    const RequestGateHolder gate;
    /// What a request gets if there is no memory to carry it out: of no request's class, and here
    /// from the start.
    const std::shared_ptr<ClientResponse> outOfMemory =
        std::make_shared<ClientResponse>(ReqRespType::Callback, Status::Failure);

    // Self-synchronised.
    Mailbox mailbox;

    // Constant once constructed.
    std::thread workerThread;
    int requestFd = -1;  ///< the mailbox's

    // Self-synchronised, and worker thread only.
    EventManager eventManager;
    ProfileCache profileCache;

    // Worker thread only. From a refresh's start to its completion.
    bool refreshBlocked = false;
};

}  // namespace kiv

#endif
