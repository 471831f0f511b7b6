// The part of the modem that takes requests: from a client's thread to the modem thread and back.

#include <algorithm>
#include <cstring>
#include <utility>

#include "Modem.h"

namespace kiv::emulator {
namespace {

constexpr size_t kMostLoggedRequests = 16384;

}  // namespace

int Modem::sendRequest(rav_client_type handle, const Message& message,
                       std::span<const std::byte> bytes, std::span<std::byte> response,
                       std::chrono::milliseconds timeout) {
    const TimePoint deadline = realTimeAfter(timeout);
    std::unique_lock lock(mutex);
    const Client* const client = findClient(handle, false);
    if (!client) {
        return RAV_CLIENT_ERR_INVALID;
    }
    if (bytes.size() != message.requestLength || response.size() != message.responseLength) {
        return RAV_CLIENT_ERR_MALFORMED;
    }
    if (client->state == Client::Service::Gone) {
        return RAV_CLIENT_ERR_SERVICE_GONE;
    }
    const TransactionPointer request = putRequest(handle, *client, timeout);
    request->record.messageId = message.id;
    request->record.bytes.assign(bytes.begin(), bytes.end());
    lock.unlock();
    threads.wake(Thread::Modem);
    lock.lock();
    const auto isFree = [&] { return request->state >= State::Free; };
    if (request->isCounted) {
        request->freed.wait(lock, isFree);
    } else if (!request->freed.wait_until(lock, deadline, isFree)) {
        // An answer that the hook has before it is in time.
        hookEnded.wait(lock, [&] { return request->state != State::Answering; });
        if (request->state < State::Decided) {
            giveUp(request, RAV_CLIENT_ERR_TIMEOUT);
        }
    }
    const int result = request->record.transportResult;
    if (result == RAV_CLIENT_OK) {
        std::copy(request->answer.begin(), request->answer.end(), response.begin());
        request->answer = std::vector<std::byte>();  // {} alone would keep the memory
    }
    return result;
}

Modem::TransactionPointer Modem::putRequest(rav_client_type handle, const Client& client,
                                            std::chrono::milliseconds timeout) {
    auto request = std::make_shared<Transaction>();
    request->client = handle;
    request->clientNumber = client.number;
    request->timeout = timeout;
    request->isCounted = threads.isVirtual();
    request->isFromCallback = threads.isCurrent(Thread::Callback);
    request->name = {TaskName::Kind::Request, sentCount + 1};
    request->record.number = sentCount + 1 - sentBeforeReset;
    threads.put(Thread::Modem, [=, this] { afterCallbacks(request, &Modem::take); });
    // The request is not taken before the mutex is free.
    ++sentCount;
    if (request->isCounted) {
        threads.enterSender(request->isFromCallback);
    }
    if (log.size() == kMostLoggedRequests) {
        log.pop_front();
    }
    log.push_back(request);
    inProgress.push_back(request);
    return request;
}

void Modem::moveTo(State next, Transaction& request) {
    if (request.state == State::Timed) {
        threads.forget(request.name);
    }
    if (request.state < State::Free && next >= State::Free && request.isCounted) {
        threads.leaveSender(request.isFromCallback);
    }
    request.state = next;
}

void Modem::take(const TransactionPointer& request) {
    std::unique_lock lock(mutex);
    deliverHeld();
    Client* const client = findClient(request->client, false);
    if (!client || client->state == Client::Service::Gone) {
        return;
    }
    journal.addRequest(request->clientNumber, request->record);
    if (client->state == Client::Service::Served) {
        request->fault = faults.strike(request->record.messageId);
        carryOut(*client, *request);
    }
    if (request->state >= State::Decided) {
        return;
    }
    if (client->state == Client::Service::Deaf || request->fault.drop) {
        lose(request);
        return;
    }
    if (const auto delay = request->fault.delay; delay.count() > 0) {
        // First, for an answer that comes with the time-out is in time.
        threads.post(
            Thread::Modem, [=, this] { afterCallbacks(request, &Modem::answer); }, delay,
            request->name);
        lose(request);
        return;
    }
    lock.unlock();
    afterCallbacks(request, &Modem::answer);
}

void Modem::carryOut(Client& client, Transaction& request) {
    const Request& record = request.record;
    const Fault& fault = request.fault;
    performAll(fault, Moment::BeforeDelivery);
    if (client.state != Client::Service::Served) {
        return;
    }
    if (fault.error) {
        request.answer = refuseRequest(record.messageId, *fault.error);
    } else if (!fault.transportResult) {
        request.answer = service.handleRequest(client.session, record.messageId, record.bytes);
        tellLie(fault.lie, record.messageId, request.answer);
        reportChangesOf(fault);
        sessionChanged.notify_all();
    }
    performAll(fault, Moment::BeforeReply);
}

void Modem::lose(const TransactionPointer& request) {
    // With the machine's clock the sender itself looks to its time-out.
    if (request->isCounted && request->state != State::Timed) {
        moveTo(State::Timed, *request);
        const auto expire = [=, this] {
            std::lock_guard lock(mutex);
            if (request->state < State::Decided) {
                giveUp(request, RAV_CLIENT_ERR_TIMEOUT);
            }
        };
        threads.post(Thread::Modem, expire, request->timeout, request->name);
    }
}

void Modem::answer(const TransactionPointer& request) {
    std::unique_lock lock(mutex);
    if (request->state >= State::Decided) {
        return;
    }
    const Client* const client = findClient(request->client, false);
    if (client && client->state == Client::Service::Deaf) {
        lose(request);
        return;
    }
    const int result = request->fault.transportResult.value_or(RAV_CLIENT_OK);
    if (result == RAV_CLIENT_OK) {
        moveTo(State::Answering, *request);
        noteOutcome(*request, result);
        runHook(lock, *request);
    }
    decide(*request, result);
    performAll(request->fault, Moment::AfterReply);
    lock.unlock();
    afterCallbacks(request, &Modem::finish);
}

void Modem::noteOutcome(Transaction& request, int result) {
    request.record.transportResult = result;
    if (result == RAV_CLIENT_OK) {
        wds_response_type_v01 head;
        std::memcpy(&head, request.answer.data(), sizeof(head));
        request.record.result = head.result;
        request.record.error = head.error;
    }
}

void Modem::decide(Transaction& request, int result) {
    noteOutcome(request, result);
    journal.addResponse(request.clientNumber, request.record, request.answer);
    moveTo(State::Decided, request);
}

void Modem::finish(const TransactionPointer& request) {
    std::unique_lock lock(mutex);
    if (request->record.transportResult != RAV_CLIENT_OK) {
        runHook(lock, *request);
    }
    moveTo(State::Finished, *request);
    if (!threads.isVirtual()) {
        deliverHeld();
    }
    std::erase(inProgress, request);
    requestFinished.notify_all();
    lock.unlock();
    request->freed.notify_all();
}

void Modem::giveUp(const TransactionPointer& request, int result) {
    decide(*request, result);
    if (!request->isCounted) {
        moveTo(State::Free, *request);
        request->freed.notify_all();
    }
    threads.post(Thread::Modem, [=, this] { afterCallbacks(request, &Modem::finish); });
}

void Modem::abandonRequests(rav_client_type client, int result) {
    for (const TransactionPointer& request : inProgress) {
        if (request->state < State::Answering && (!client || request->client == client)) {
            giveUp(request, result);
        }
    }
}

void Modem::afterCallbacks(const TransactionPointer& request,
                           void (Modem::*step)(const TransactionPointer&)) {
    const bool isOrdered = threads.isVirtual() || request->fault.order == IndicationOrder::Before;
    afterCallbacks(isOrdered && !request->isFromCallback, [=, this] { (this->*step)(request); });
}

void Modem::runHook(std::unique_lock<std::mutex>& lock, Transaction& request) {
    auto called = hook;
    if (!called) {
        return;
    }
    runsHook = true;
    const bool isAnswered = request.state == State::Answering;
    lock.unlock();
    (*called)(request.record, isAnswered ? request.answer.data() : nullptr,
              isAnswered ? request.answer.size() : 0);
    called = nullptr;  // the hook may be destroyed here, with no lock held
    lock.lock();
    runsHook = false;
    hookEnded.notify_all();
}

void Modem::waitForHook(std::unique_lock<std::mutex>& lock) {
    if (!threads.isCurrent(Thread::Modem)) {
        hookEnded.wait(lock, [this] { return !runsHook; });
    }
}

/// Waits until all that has been decided by now is finished, however often callbacks put it off.
bool Modem::waitForFinish(TimePoint deadline) {
    std::unique_lock lock(mutex);
    auto awaited = inProgress;
    std::erase_if(awaited, [](const auto& request) { return request->state < State::Decided; });
    return requestFinished.wait_until(lock, deadline, [&] {
        return std::all_of(awaited.begin(), awaited.end(),
                           [](const auto& request) { return request->state == State::Finished; });
    });
}

}  // namespace kiv::emulator
