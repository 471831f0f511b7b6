#include "ClientRequestManager.h"

#include <array>
#include <list>
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
    // Meant: the thread runs before it can be given a request.
    workerThread = std::thread([this] { runKivThread(); });
    requestFd = mailbox.open();
    try {
        eventManager.addEventHandler(requestFd, handleClientRequest, this, nullptr, EPOLLIN);
    } catch (...) {
        endWorker();
        throw;
    }
}

ClientRequestManager::~ClientRequestManager() {
    KIV_LOG(DEBUG, "kiv::ClientRequestManager: destructor");
    gate.get()->close();
    eventManager.stop();
    mailbox.close();
    gate.get()->waitUntilEmpty();
    eventManager.removeEventHandler(requestFd);
    endWorker();
}

void ClientRequestManager::endWorker() {
    eventManager.stop();
    eventManager.wake();
    workerThread.join();
    // What another engine's thread has put off since the worker last looked.
    eventManager.finishItem();
}

void ClientRequestManager::runKivThread() {
    const NoWaitScope noWait;
    engineOfThisThread = this;
    KIV_LOG(EVENT, "KIV thread started");
    // The destructor may have stopped the loop before this thread came so far.
    while (!eventManager.isStopped()) {
        eventManager.processEvents();
    }
}

RequestFunction ClientRequestManager::makeRequestFunction() const {
    return [gate = gate.get()](const std::shared_ptr<ClientRequest>& request) {
        return gate->process(request);
    };
}

const ClientRequestManager* ClientRequestManager::ofThisThread() { return engineOfThisThread; }

// Client threads.

std::shared_ptr<ClientResponse> ClientRequestManager::processClientRequest(
    const std::shared_ptr<ClientRequest>& request) {
    if (NoWaitScope::isActive()) {
        deferRelease(request);
        return nullptr;
    }
    return mailbox.post(*request);
}

/// For a thread that must not wait. Refuses all but a release.
void ClientRequestManager::deferRelease(const std::shared_ptr<ClientRequest>& request) {
    const auto release = std::dynamic_pointer_cast<CallbackRequest>(request);
    if (!release || !release->hasReleaseToken()) {
        KIV_LOG(ERROR, "Request on a thread that must not wait refused: %s",
                request->dump().c_str());
        return;
    }
    eventManager.defer([this, release] {
        KIV_LOG(INFO, "Handling %s", release->dump().c_str());
        dispatch(*release);
    });
    if (ofThisThread() != this) {
        // The worker finds no request, and then the release.
        signalEventFd(requestFd);
    }
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
    auto* const engine = static_cast<ClientRequestManager*>(arg);
    if (const ClientRequest* const request = engine->mailbox.take()) {
        // Meant: a request of no known type, or a refresh of the wrong class, gets no response.
        engine->mailbox.finish(engine->respond(*request));
    }
}

std::shared_ptr<ClientResponse> ClientRequestManager::respond(const ClientRequest& served) {
    try {
        KIV_LOG_TEXT(INFO, "Handling ", served.dump());
        return dispatch(served);
    } catch (const std::bad_alloc&) {
        KIV_LOG(ERROR, "ClientRequestManager: out of memory");
        return outOfMemory;
    }
}

std::shared_ptr<ClientResponse> ClientRequestManager::dispatch(const ClientRequest& served) {
    using Self = ClientRequestManager;
    // By the number of the type.
    constexpr std::array kHandlers = {&Self::add,   &Self::modify, &Self::remove,   &Self::filter,
                                      &Self::match, &Self::get,    &Self::callback, &Self::refresh};
    const auto type = static_cast<size_t>(served.getRequestType());
    return type < kHandlers.size() ? (this->*kHandlers[type])(served) : nullptr;
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
    using Keys = std::list<std::shared_ptr<IProfileKey>>;
    const auto* filterRequest = admit<FilterRequest>(served);
    if (filterRequest == nullptr) {
        return std::make_shared<FilterResponse>(Status::Failure, Keys());
    }
    const auto found = profileCache.filter(filterRequest->getFilterParams());
    return std::make_shared<FilterResponse>(Status::Success, Keys(found.begin(), found.end()));
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
