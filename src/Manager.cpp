#include "Manager.h"

#include <new>
#include <utility>

#include "ClientRequest.h"
#include "ClientRequestManager.h"
#include "ClientResponse.h"
#include "ForkedChild.h"
#include "LocalLogBuffer.h"
#include "LogWrapper.h"
#include "NeverDestroyed.h"
#include "NoWaitScope.h"
#include "RequestGate.h"

namespace kiv {

namespace {

/// What the operation returns, or the empty result if memory runs out on the way.
template <class Operation>
auto orNothing(Operation&& operation) -> decltype(operation()) {
    try {
        return operation();
    } catch (const std::bad_alloc&) {
        KIV_LOG(ERROR, "Manager: out of memory");
        return decltype(operation())();
    }
}

std::shared_ptr<ClientRequest> makeRefreshRequest(PDCRefreshStatus status) {
    const auto request = std::make_shared<RefreshRequest>(status);
    request->text();  // now, for later it is in several threads' hands
    return request;
}

/// The two requests of a refresh, which are there before memory may run out: without Complete the
/// library would refuse everything for ever.
const std::shared_ptr<ClientRequest>& refreshRequest(PDCRefreshStatus status) {
    static NeverDestroyed<std::shared_ptr<ClientRequest>> start(
        makeRefreshRequest(PDCRefreshStatus::Start));
    static NeverDestroyed<std::shared_ptr<ClientRequest>> complete(
        makeRefreshRequest(PDCRefreshStatus::Complete));
    return status == PDCRefreshStatus::Start ? start.get() : complete.get();
}

}  // namespace

Manager& Manager::getInstance() {
    // The object stays for those who call it while the process ends; only its engine goes at exit.
    static NeverDestroyed<Manager> mgr;
    struct EngineStopper {
        ~EngineStopper() { mgr.get().stop(); }
    };
    static EngineStopper stopper;
    return mgr.get();
}

Manager::Manager() { KIV_LOG(DEBUG, "kiv::Manager: constructor"); }

Manager::~Manager() {
    stop();
    if (isForkedChild()) {
        static_cast<void>(clientRequestManager.release());
    }
}

void Manager::init(int bindValue, bool useAdbLog) {
    if (isForkedChild()) {
        return;
    }
    if (NoWaitScope::isActive()) {
        KIV_LOG(ERROR, "Manager::init on a thread that must not wait refused");
        return;
    }
    endLibraryInForkedChildren();
    // Without memory the engine of before goes on.
    orNothing([&] {
        std::unique_ptr<LogWriter> writer(useAdbLog ? static_cast<LogWriter*>(new AdbWriter)
                                                    : static_cast<LogWriter*>(new DiagWriter));
        LogWrapper::getInstance().setLogWriter(std::move(writer));
        refreshRequest(PDCRefreshStatus::Complete);
        KIV_LOG(EVENT, "Manager::init(%d)", bindValue);
        replaceEngine(std::make_unique<ClientRequestManager>(bindValue));
    });
}

void Manager::stop() {
    // In a forked child the engine's descriptors are its parent's.
    if (!isForkedChild()) {
        replaceEngine(nullptr);
    }
}

/// Destroys the engine of before, with no lock held.
void Manager::replaceEngine(std::unique_ptr<ClientRequestManager> engine) {
    {
        std::lock_guard lock(engineMutex);
        clientRequestManager.swap(engine);
    }
    // On the worker thread, if a listener ends the process, it can't be taken down and is left.
    if (NoWaitScope::isActive()) {
        static_cast<void>(engine.release());
    }
}

/// The way to the engine, which may be replaced meanwhile; empty before init.
std::shared_ptr<RequestGate> Manager::findGate() {
    std::lock_guard lock(engineMutex);
    return clientRequestManager ? clientRequestManager->getGate() : nullptr;
}

/// Posts the request and logs it and its response. Empty if there is no response of that class.
template <class Response>
std::shared_ptr<Response> Manager::process(const char* operation, const char* failure,
                                           const std::shared_ptr<ClientRequest>& request) {
    if (isForkedChild()) {
        return nullptr;
    }
    const std::shared_ptr<RequestGate> gate = findGate();
    if (!gate) {
        KIV_LOG(ERROR, "Manager not initialized!");
        return nullptr;
    }
    KIV_LOG_TEXT(EVENT, "Manager::", operation, " > ", request->text());
    std::shared_ptr<ClientResponse> response = gate->process(request);
    KIV_LOG_TEXT(EVENT, "Manager::", operation, " < ", response ? response->dump() : "");
    auto* const result = dynamic_cast<Response*>(response.get());
    if (result == nullptr) {
        KIV_LOG(ERROR, "%s", failure);
        return nullptr;
    }
    return {std::move(response), result};
}

std::shared_ptr<IProfileKey> Manager::addProfile(const AddProfileParams& params) {
    return orNothing([&] {
        const auto response = process<AddResponse>("addProfile", "Unable to cast to AddResponse",
                                                   std::make_shared<AddRequest>(params));
        return response ? response->takeAddProfileKey() : nullptr;
    });
}

bool Manager::modifyProfile(const ModifyProfileParams& params, std::shared_ptr<IProfileKey> key) {
    return orNothing([&] {
        const auto response =
            process<ModifyResponse>("modifyProfile", "Unable to cast to ModifyResponse",
                                    std::make_shared<ModifyRequest>(params, std::move(key)));
        return response && response->getStatus() == Status::Success;
    });
}

bool Manager::deleteProfile(std::shared_ptr<IProfileKey> key) {
    return orNothing([&] {
        const auto response =
            process<DeleteResponse>("deleteProfile", "Unable to cast to DeleteResponse",
                                    std::make_shared<DeleteRequest>(std::move(key)));
        return response && response->getStatus() == Status::Success;
    });
}

std::list<std::shared_ptr<IProfileKey>> Manager::filter(const FilterProfileParams& params) {
    return orNothing([&] {
        const auto response = process<FilterResponse>("filter", "Unable to cast to FilterResponse",
                                                      std::make_shared<FilterRequest>(params));
        return response ? response->takeFilterResult() : std::list<std::shared_ptr<IProfileKey>>();
    });
}

std::optional<ProfileParams> Manager::getProfile(std::shared_ptr<IProfileKey> key) {
    return orNothing([&]() -> std::optional<ProfileParams> {
        const auto response = process<GetResponse>("getProfile", "Error in getProfile",
                                                   std::make_shared<GetRequest>(std::move(key)));
        if (!response || response->getStatus() != Status::Success) {
            return std::nullopt;
        }
        return response->takeParams();
    });
}

bool Manager::match(const FilterProfileParams& params, std::shared_ptr<IProfileKey> key) {
    return orNothing([&] {
        const auto response =
            process<MatchResponse>("match", "Unable to cast to MatchResponse",
                                   std::make_shared<MatchRequest>(params, std::move(key)));
        return response && response->getMatchResult();
    });
}

void Manager::refresh(PDCRefreshStatus status) {
    const bool refreshed = orNothing([&] {
        return process<RefreshResponse>("refresh", "Unable to cast to RefreshResponse",
                                        refreshRequest(status)) != nullptr;
    });
    if (refreshed) {
        KIV_LOG(
            INFO, "%s",
            status == PDCRefreshStatus::Start ? "KIV refresh started" : "KIV refresh completed");
    }
}

std::vector<std::string> Manager::dump() {
    if (isForkedChild()) {
        return {};
    }
    return orNothing([this] {
        std::vector<std::string> lines;
        {
            std::lock_guard lock(engineMutex);
            if (clientRequestManager) {
                lines = clientRequestManager->dump();
            }
        }
        lines.emplace_back("Logs");
        for (std::string& line : LocalLogBuffer::getInstance().getLogs()) {
            lines.push_back(std::move(line));
        }
        return lines;
    });
}

}  // namespace kiv
