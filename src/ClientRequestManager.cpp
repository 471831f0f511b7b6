#include "ClientRequestManager.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

#include "EventFd.h"
#include "LogWrapper.h"
#include "NoWaitScope.h"

namespace kiv {

namespace {

/// The engine whose worker thread this is.
thread_local const ClientRequestManager* engineOfThisThread = nullptr;

Status statusOf(bool success) { return success ? Status::Success : Status::Failure; }

std::shared_ptr<ProfileKey> toProfileKey(const std::shared_ptr<IProfileKey>& key) {
    return std::dynamic_pointer_cast<ProfileKey>(key);
}

}  // namespace

// Start and stop.

ClientRequestManager::ClientRequestManager(int bindValue)
    : gate(*this), profileCache(eventManager, bindValue, makeRequestFunction()) {
    KIV_LOG(DEBUG, "kiv::ClientRequestManager: constructor");
    {
        std::lock_guard lock(mutex);
        refreshBlocked = false;
    }
    // Meant: the thread runs before it can be given a request.
    workerThread = std::thread([this] { runKivThread(); });
    requestFd = createEventFd();
    try {
        eventManager.addEventHandler(requestFd, handleClientRequest, this, nullptr, EPOLLIN);
    } catch (...) {
        eventManager.stop();
        endWorker();
        throw;
    }
}

ClientRequestManager::~ClientRequestManager() {
    KIV_LOG(DEBUG, "kiv::ClientRequestManager: destructor");
    gate.get()->close();
    eventManager.stop();
    turnClientsAway();
    gate.get()->waitUntilEmpty();
    eventManager.removeEventHandler(requestFd);
    endWorker();
}

void ClientRequestManager::endWorker() {
    running.store(false);
    eventManager.wake();
    workerThread.join();
    // Only now: until it has stopped, the worker may still read the descriptor.
    close(requestFd);
}

/// Lets every client that waits for its turn or for a response return without one.
void ClientRequestManager::turnClientsAway() {
    std::lock_guard lock(mutex);
    closing = true;
    responseCv.notify_all();
    for (std::condition_variable* client : waitingClients) {
        client->notify_one();
    }
}

void ClientRequestManager::runKivThread() {
    const NoWaitScope noWait;
    engineOfThisThread = this;
    KIV_LOG(EVENT, "KIV thread started");
    running.store(true);
    // The destructor may have cleared the flag before this thread set it.
    while (running.load() && !eventManager.isStopped()) {
        eventManager.processEvents();
    }
    eventManager.finishItem();
}

RequestFunction ClientRequestManager::makeRequestFunction() const {
    return [gate = gate.get()](std::shared_ptr<ClientRequest> clientRequest) {
        return gate->process(std::move(clientRequest));
    };
}

// Client threads.

std::shared_ptr<ClientResponse> ClientRequestManager::processClientRequest(
    std::shared_ptr<ClientRequest> clientRequest) {
    if (NoWaitScope::isActive()) {
        return processWithoutWaiting(clientRequest);
    }
    ssize_t written = 0;
    int error = 0;
    {
        WaitLock lock(mutex);
        if (!waitForTurn(lock)) {
            return nullptr;
        }
        written = signalEventFd(requestFd);
        error = errno;
        if (written == static_cast<ssize_t>(sizeof(uint64_t))) {
            // The worker can't look at the slot before this thread waits.
            request = clientRequest;
            while (!response && !closing) {
                lock.wait(responseCv);
            }
            request.reset();
            passTurn();
            return std::exchange(response, nullptr);
        }
        passTurn();
    }
    KIV_LOG(ERROR, "error in writing rv: %d error: %s", static_cast<int>(written), strerror(error));
    return nullptr;
}

/// Waits until the mailbox is this client's alone. False if the engine goes away.
bool ClientRequestManager::waitForTurn(WaitLock& lock) {
    if (turnTaken || !waitingClients.empty()) {
        std::condition_variable turn;
        const auto place = waitingClients.insert(waitingClients.end(), &turn);
        while (!closing && (turnTaken || waitingClients.front() != &turn)) {
            lock.wait(turn);
        }
        waitingClients.erase(place);
    }
    if (closing) {
        return false;
    }
    turnTaken = true;
    return true;
}

void ClientRequestManager::passTurn() {
    turnTaken = false;
    if (!waitingClients.empty()) {
        waitingClients.front()->notify_one();
    }
}

std::shared_ptr<ClientResponse> ClientRequestManager::processWithoutWaiting(
    const std::shared_ptr<ClientRequest>& clientRequest) {
    const auto release = std::dynamic_pointer_cast<CallbackRequest>(clientRequest);
    if (!release || !release->hasReleaseToken()) {
        KIV_LOG(ERROR, "Request on a thread that must not wait refused: %s",
                clientRequest->dump().c_str());
        return nullptr;
    }
    eventManager.defer([this, release] {
        std::lock_guard lock(mutex);
        KIV_LOG(INFO, "Handling %s", release->dump().c_str());
        dispatch(*release);
    });
    if (engineOfThisThread != this) {
        // The worker finds an empty mailbox, and then the release.
        signalEventFd(requestFd);
    }
    return nullptr;
}

// Worker thread.

void ClientRequestManager::handleClientRequest(int fd, void* arg) {
    // Meant: the line number in the trace is fixed.
    KIV_LOG_TEXT(DEBUG, ":77:handleClientRequest");
    drainEventFd(fd);
    if (arg == nullptr) {
        KIV_LOG(ERROR, "arg is null");
        return;
    }
    static_cast<ClientRequestManager*>(arg)->serveRequest();
}

void ClientRequestManager::serveRequest() {
    {
        std::lock_guard lock(mutex);
        if (request) {
            try {
                KIV_LOG_TEXT(INFO, "Handling ", request->dump());
                // Meant: a request of no known type, or a refresh of the wrong class, gets no
                // response, and its client goes on waiting.
                if (std::shared_ptr<ClientResponse> answer = dispatch(*request)) {
                    response = std::move(answer);
                }
            } catch (const std::bad_alloc&) {
                KIV_LOG(ERROR, "ClientRequestManager: out of memory");
                response = outOfMemory;
            }
            request.reset();
        }
    }
    // Not under the lock, for which the client would have to wait once more.
    responseCv.notify_one();
}

std::shared_ptr<ClientResponse> ClientRequestManager::dispatch(const ClientRequest& served) {
    switch (served.getRequestType()) {
        case ReqRespType::Add:
            return add(served);
        case ReqRespType::Modify:
            return modify(served);
        case ReqRespType::Delete:
            return remove(served);
        case ReqRespType::Filter:
            return filter(served);
        case ReqRespType::Match:
            return match(served);
        case ReqRespType::Get:
            return get(served);
        case ReqRespType::Callback:
            return callback(served);
        case ReqRespType::Refresh:
            return refresh(served);
    }
    return nullptr;
}

std::shared_ptr<ClientResponse> ClientRequestManager::add(const ClientRequest& served) {
    const auto* addRequest = admit<AddRequest>(served);
    if (addRequest == nullptr) {
        return std::make_shared<AddResponse>(Status::Failure, nullptr);
    }
    // Meant: a success even without a key.
    return std::make_shared<AddResponse>(Status::Success,
                                         profileCache.add(addRequest->getAddProfileParams()));
}

std::shared_ptr<ClientResponse> ClientRequestManager::modify(const ClientRequest& served) {
    bool modified = false;
    if (const auto* modifyRequest = admit<ModifyRequest>(served)) {
        const auto key = toProfileKey(modifyRequest->getModifyProfileKey());
        modified = key && profileCache.modify(modifyRequest->getModifyProfileParams(), key);
    }
    return std::make_shared<ModifyResponse>(statusOf(modified));
}

std::shared_ptr<ClientResponse> ClientRequestManager::remove(const ClientRequest& served) {
    bool removed = false;
    if (const auto* deleteRequest = admit<DeleteRequest>(served)) {
        const auto key = toProfileKey(deleteRequest->getDeleteProfileKey());
        removed = key && profileCache.remove(key);
    }
    return std::make_shared<DeleteResponse>(statusOf(removed));
}

std::shared_ptr<ClientResponse> ClientRequestManager::filter(const ClientRequest& served) {
    std::list<std::shared_ptr<IProfileKey>> keys;
    const auto* filterRequest = admit<FilterRequest>(served);
    if (filterRequest == nullptr) {
        return std::make_shared<FilterResponse>(Status::Failure, std::move(keys));
    }
    for (auto& key : profileCache.filter(filterRequest->getFilterParams())) {
        keys.push_back(std::move(key));
    }
    return std::make_shared<FilterResponse>(Status::Success, std::move(keys));
}

std::shared_ptr<ClientResponse> ClientRequestManager::match(const ClientRequest& served) {
    if (const auto* matchRequest = admit<MatchRequest>(served)) {
        if (const auto key = toProfileKey(matchRequest->getMatchKey())) {
            return std::make_shared<MatchResponse>(
                Status::Success, profileCache.match(matchRequest->getMatchParams(), key));
        }
    }
    return std::make_shared<MatchResponse>(Status::Failure, false);
}

std::shared_ptr<ClientResponse> ClientRequestManager::get(const ClientRequest& served) {
    std::optional<ProfileParams> params;
    if (const auto* getRequest = admit<GetRequest>(served)) {
        if (const auto key = toProfileKey(getRequest->getProfileKey())) {
            params = profileCache.get(key);
        }
    }
    const Status status = statusOf(params.has_value());
    return std::make_shared<GetResponse>(status, std::move(params));
}

std::shared_ptr<ClientResponse> ClientRequestManager::callback(const ClientRequest& served) {
    bool done = false;
    if (const auto* callbackRequest = admit<CallbackRequest>(served)) {
        if (callbackRequest->hasReleaseToken()) {
            done = profileCache.releaseProfile(callbackRequest->getReleaseToken());
        } else if (callbackRequest->hasExpirationInfo()) {
            done = profileCache.registerExpirationListener(callbackRequest->getExpirationCb(),
                                                           callbackRequest->getExpirationKey(),
                                                           callbackRequest->getExpirationToken());
        }
    }
    return std::make_shared<CallbackResponse>(statusOf(done));
}

std::shared_ptr<ClientResponse> ClientRequestManager::refresh(const ClientRequest& served) {
    const auto* refreshRequest = dynamic_cast<const RefreshRequest*>(&served);
    if (refreshRequest == nullptr) {
        return nullptr;
    }
    refreshBlocked = refreshRequest->getRefreshStatus() == PDCRefreshStatus::Start;
    if (!refreshBlocked) {
        profileCache.refresh();
    }
    return std::make_shared<RefreshResponse>(Status::Success);
}

}  // namespace kiv
