#include "ClientRequestManager.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

#include "CastTo.h"
#include "EventFd.h"
#include "LogWrapper.h"
#include "NoWaitScope.h"

namespace kiv {

namespace {

/// The engine whose worker thread this is.
thread_local const ClientRequestManager* engineOfThisThread = nullptr;

Status statusOf(bool success) { return success ? Status::Success : Status::Failure; }

/// For as long as the request is there, which keeps the key: the result owns nothing.
std::shared_ptr<ProfileKey> toProfileKey(const std::shared_ptr<IProfileKey>& key) {
    return {std::shared_ptr<void>(), castTo<ProfileKey>(key.get())};
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

/// Lets every client that waits return without a response.
void ClientRequestManager::turnClientsAway() {
    std::lock_guard lock(mutex);
    closing = true;
    for (Turns* const turns : {&mailbox, &waiting, &unanswered}) {
        while (!turns->empty()) {
            const auto turn = turns->begin();
            move(turn, taken);
            turn->over.post();
        }
    }
    turnGivenBack.notify_all();
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
    return [gate = gate.get()](const std::shared_ptr<ClientRequest>& clientRequest) {
        return gate->process(clientRequest);
    };
}

// Client threads.

std::shared_ptr<ClientResponse> ClientRequestManager::processClientRequest(
    const std::shared_ptr<ClientRequest>& clientRequest) {
    if (NoWaitScope::isActive()) {
        return processWithoutWaiting(clientRequest);
    }
    Turns::iterator turn;
    bool isFirst = false;
    {
        WaitLock lock(mutex);
        turn = takeTurn(lock);
        if (closing) {
            return nullptr;
        }
        turn->request = clientRequest.get();
        isFirst = mailbox.empty();
        move(turn, isFirst ? mailbox : waiting);
    }
    if (isFirst) {
        signalFor(turn);
    }
    turn->over.wait();
    std::shared_ptr<ClientResponse> response;
    Signal signalled;
    {
        std::lock_guard lock(mutex);
        response = std::exchange(turn->response, nullptr);
        signalled = std::exchange(turn->signal, Signal());
        move(turn, spares);
        if (waitingForATurn > 0) {
            turnGivenBack.notify_one();
        }
    }
    if (!signalled.isSent()) {
        KIV_LOG(ERROR, "error in writing rv: %d error: %s", static_cast<int>(signalled.written),
                strerror(signalled.error));
    }
    return response;
}

/// Not under the lock, for which the worker would have to wait as soon as it wakes.
void ClientRequestManager::signalFor(Turns::iterator turn) {
    const Signal signalled = signal();
    if (signalled.isSent()) {
        return;
    }
    std::lock_guard lock(mutex);
    turn->signal = signalled;
    // Unless the worker, awake for something else, has served it all the same.
    if (turn->place == &mailbox) {
        move(turn, taken);
        turn->over.post();
        passMailbox();
    }
}

/// Waits only if there is no memory for a turn. There may be none if the engine goes away, which is
/// for the caller to look at.
ClientRequestManager::Turns::iterator ClientRequestManager::takeTurn(WaitLock& lock) {
    if (spares.empty()) {
        try {
            spares.emplace_back();
        } catch (const std::bad_alloc&) {
            ++waitingForATurn;
            while (spares.empty() && !closing) {
                lock.wait(turnGivenBack);
            }
            --waitingForATurn;
        }
    }
    const auto turn = spares.begin();
    if (turn != spares.end()) {
        turn->place = &spares;
    }
    return turn;
}

/// Puts the turn of who waits longest into the mailbox. Whoever has emptied the mailbox does that,
/// not the client to whom it passes: that one need not run before its response is there.
void ClientRequestManager::passMailbox() {
    while (mailbox.empty() && !waiting.empty()) {
        const auto next = waiting.begin();
        next->signal = signal();
        if (next->signal.isSent()) {
            move(next, mailbox);
        } else {
            move(next, taken);
            next->over.post();
        }
    }
}

void ClientRequestManager::move(Turns::iterator turn, Turns& to) {
    to.splice(to.end(), *turn->place, turn);
    turn->place = &to;
}

ClientRequestManager::Signal ClientRequestManager::signal() const {
    const ssize_t written = signalEventFd(requestFd);
    return {written, errno};
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
    Semaphore* over = nullptr;
    {
        std::lock_guard lock(mutex);
        if (mailbox.empty()) {
            return;
        }
        const auto turn = mailbox.begin();
        turn->response = respond(*turn->request);
        if (turn->response) {
            move(turn, taken);
            over = &turn->over;
        } else {
            // Meant: a request of no known type, or a refresh of the wrong class, gets no response,
            // and its client goes on waiting.
            move(turn, unanswered);
        }
        passMailbox();
    }
    if (over != nullptr) {
        // Not under the lock, for which the client would have to wait once more.
        over->post();
    }
}

std::shared_ptr<ClientResponse> ClientRequestManager::respond(const ClientRequest& served) {
    try {
        KIV_LOG_TEXT(INFO, "Handling ", served.text());
        return dispatch(served);
    } catch (const std::bad_alloc&) {
        KIV_LOG(ERROR, "ClientRequestManager: out of memory");
        return outOfMemory;
    }
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
    const auto* refreshRequest = castTo<const RefreshRequest>(&served);
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
