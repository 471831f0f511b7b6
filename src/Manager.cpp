#include "Manager.h"

#include <array>
#include <functional>
#include <new>
#include <type_traits>
#include <utility>

#include "CastTo.h"
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

void logOutOfMemory() { KIV_LOG(ERROR, "Manager: out of memory"); }

/// One operation: posts the request that make gives, and logs it and its response. What get reads
/// from a Response; the empty result if there is no response of that class.
template <class Response, class Make, class Get>
auto process(const std::shared_ptr<RequestGate>& gate, const char* operation, const char* failure,
             const Make& make, const Get& get) {
    using Result = std::invoke_result_t<Get, const Response&>;
    if (!gate) {
        KIV_LOG(ERROR, "Manager not initialized!");
        return Result();
    }
    try {
        const std::shared_ptr<ClientRequest> request = make();
        KIV_LOG_TEXT(EVENT, "Manager::", operation, " > ", request->text());
        const std::shared_ptr<ClientResponse> response = gate->process(request);
        KIV_LOG_TEXT(EVENT, "Manager::", operation, " < ", response ? response->dump() : "");
        if (const auto* const result = castTo<const Response>(response.get())) {
            return std::invoke(get, *result);
        }
        KIV_LOG(ERROR, "%s", failure);
    } catch (const std::bad_alloc&) {
        logOutOfMemory();
    }
    return Result();
}

bool isSuccess(const ClientResponse& response) { return response.getStatus() == Status::Success; }

/// The two requests of a refresh, which are there before memory may run out: without Complete the
/// library would refuse everything for ever.
const std::shared_ptr<ClientRequest>& refreshRequest(PDCRefreshStatus status) {
    const auto make = [](PDCRefreshStatus each) {
        auto request = std::make_shared<RefreshRequest>(each);
        request->text();  // now, for later several threads have the request
        return request;
    };
    using Pair = std::array<std::shared_ptr<ClientRequest>, 2>;
    static NeverDestroyed<Pair> requests(
        Pair{make(PDCRefreshStatus::Start), make(PDCRefreshStatus::Complete)});
    return requests.get()[status == PDCRefreshStatus::Start ? 0 : 1];
}

}  // namespace

Manager& Manager::getInstance() {
    // The object stays for those who call it while the process ends; only its engine goes at exit.
    static NeverDestroyed<Manager> mgr;
    struct EngineStopper {
        ~EngineStopper() { mgr.get().replaceEngine(nullptr); }
    };
    static EngineStopper stopper;
    return mgr.get();
}

Manager::Manager() { KIV_LOG(DEBUG, "kiv::Manager: constructor"); }

Manager::~Manager() {
    replaceEngine(nullptr);
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
    try {
        std::unique_ptr<LogWriter> writer(useAdbLog ? static_cast<LogWriter*>(new AdbWriter)
                                                    : static_cast<LogWriter*>(new DiagWriter));
        LogWrapper::getInstance().setLogWriter(std::move(writer));
        refreshRequest(PDCRefreshStatus::Complete);
        KIV_LOG(EVENT, "Manager::init(%d)", bindValue);
        replaceEngine(std::make_unique<ClientRequestManager>(bindValue));
    } catch (const std::bad_alloc&) {
        logOutOfMemory();  // the engine of before goes on
    }
}

/// Destroys the engine of before, with no lock held.
void Manager::replaceEngine(std::unique_ptr<ClientRequestManager> engine) {
    if (isForkedChild()) {
        return;  // the engine's descriptors are its parent's
    }
    {
        std::lock_guard lock(engineMutex);
        clientRequestManager.swap(engine);
    }
    // On the worker thread, if a listener ends the process, it can't be taken down and is left.
    if (NoWaitScope::isActive()) {
        static_cast<void>(engine.release());
    }
}

/// The way to the engine, which may be replaced meanwhile; empty before init and in a forked child.
std::shared_ptr<RequestGate> Manager::findGate() {
    if (isForkedChild()) {
        return nullptr;
    }
    std::lock_guard lock(engineMutex);
    return clientRequestManager ? clientRequestManager->getGate() : nullptr;
}

std::shared_ptr<IProfileKey> Manager::addProfile(const AddProfileParams& params) {
    return process<AddResponse>(
        findGate(), "addProfile", "Unable to cast to AddResponse",
        [&] { return std::make_shared<AddRequest>(params); }, &AddResponse::getAddProfileKey);
}

bool Manager::modifyProfile(const ModifyProfileParams& params, std::shared_ptr<IProfileKey> key) {
    return process<ModifyResponse>(
        findGate(), "modifyProfile", "Unable to cast to ModifyResponse",
        [&] { return std::make_shared<ModifyRequest>(params, std::move(key)); }, isSuccess);
}

bool Manager::deleteProfile(std::shared_ptr<IProfileKey> key) {
    return process<DeleteResponse>(
        findGate(), "deleteProfile", "Unable to cast to DeleteResponse",
        [&] { return std::make_shared<DeleteRequest>(std::move(key)); }, isSuccess);
}

std::list<std::shared_ptr<IProfileKey>> Manager::filter(const FilterProfileParams& params) {
    return process<FilterResponse>(
        findGate(), "filter", "Unable to cast to FilterResponse",
        [&] { return std::make_shared<FilterRequest>(params); }, &FilterResponse::getFilterResult);
}

std::optional<ProfileParams> Manager::getProfile(std::shared_ptr<IProfileKey> key) {
    return process<GetResponse>(
        findGate(), "getProfile", "Error in getProfile",
        [&] { return std::make_shared<GetRequest>(std::move(key)); },
        [](const GetResponse& response) {
            return isSuccess(response) ? response.getParams() : std::nullopt;
        });
}

bool Manager::match(const FilterProfileParams& params, std::shared_ptr<IProfileKey> key) {
    return process<MatchResponse>(
        findGate(), "match", "Unable to cast to MatchResponse",
        [&] { return std::make_shared<MatchRequest>(params, std::move(key)); },
        &MatchResponse::getMatchResult);
}

void Manager::refresh(PDCRefreshStatus status) {
    const bool isAnswered = process<RefreshResponse>(
        findGate(), "refresh", "Unable to cast to RefreshResponse",
        [status] { return refreshRequest(status); }, [](const RefreshResponse&) { return true; });
    if (isAnswered) {
        const bool isStart = status == PDCRefreshStatus::Start;
        KIV_LOG(INFO, "%s", isStart ? "KIV refresh started" : "KIV refresh completed");
    }
}

std::vector<std::string> Manager::dump() {
    if (isForkedChild()) {
        return {};
    }
    try {
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
    } catch (const std::bad_alloc&) {
        logOutOfMemory();
        return {};
    }
}

}  // namespace kiv
