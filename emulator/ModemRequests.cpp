// The part of the modem that takes requests: from a client's thread to the modem thread and back.

#include <cstring>
#include <utility>

#include "Lies.h"
#include "Modem.h"

namespace kiv::emulator {
namespace {

constexpr size_t kMostLoggedRequests = 16384;

}  // namespace

int Modem::sendRequest(rav_client_type handle, unsigned messageId, std::vector<std::byte> request,
                       void* response, std::chrono::milliseconds timeout) {
    const TimePoint deadline = realTimeAfter(timeout);
    std::unique_lock lock(mutex);
    const Client* const client = findClient(handle, false);
    if (!client) {
        return RAV_CLIENT_ERR_INVALID;
    }
    if (client->isGone) {
        return RAV_CLIENT_ERR_SERVICE_GONE;
    }
    const TransactionPointer transaction =
        putRequest(handle, *client, messageId, std::move(request), timeout);
    lock.unlock();
    modemThread.wake();
    lock.lock();
    const auto isAnswered = [&] { return transaction->isAnswered; };
    if (transaction->isCounted) {
        transaction->answered.wait(lock, isAnswered);
    } else if (!transaction->answered.wait_until(lock, deadline, isAnswered) &&
               !transaction->isDecided) {
        // What is decided counts, also while a slow observer still holds it back.
        giveUp(transaction, RAV_CLIENT_ERR_TIMEOUT);
    }
    const int result = transaction->record.transportResult;
    if (result == RAV_CLIENT_OK) {
        std::memcpy(response, transaction->response.data(), transaction->response.size());
        transaction->response = std::vector<std::byte>();  // {} alone would keep the memory
    }
    return result;
}

Modem::TransactionPointer Modem::putRequest(rav_client_type handle, const Client& client,
                                            unsigned messageId, std::vector<std::byte> request,
                                            std::chrono::milliseconds timeout) {
    auto transaction = std::make_shared<Transaction>();
    transaction->client = handle;
    transaction->clientNumber = client.number;
    transaction->timeout = timeout;
    transaction->isFromCallback = callbackThread.isCurrentThread();
    transaction->record.messageId = messageId;
    transaction->record.bytes = std::move(request);
    modemThread.put([=, this] { afterCallbacks(transaction, &Modem::takeRequest); });
    // It is not taken before the mutex is free.
    transaction->isCounted = clock.isVirtual();
    if (transaction->isCounted) {
        clock.enterSender();
        if (transaction->isFromCallback) {
            callbackThread.holdUp(true);
        }
    }
    transaction->record.number = ++requestCount;
    transaction->observerNumber = observersSoFar;
    if (log.size() == kMostLoggedRequests) {
        log.pop_front();
    }
    log.push_back(transaction);
    open.push_back(transaction);
    return transaction;
}

void Modem::takeRequest(const TransactionPointer& transaction) {
    std::unique_lock lock(mutex);
    deliverHeld();
    Client* const client = findClient(transaction->client, false);
    if (!client || client->isGone) {
        return;
    }
    if (journal.isOpen()) {
        journal.addRequest(now(), transaction->clientNumber, transaction->record);
    }
    if (!client->isDeaf) {
        transaction->fault = faults.strike(transaction->record.messageId);
        carryOut(*client, *transaction);
    }
    if (transaction->isDecided) {
        return;
    }
    if (client->isDeaf || transaction->fault.drop) {
        lose(transaction);
        return;
    }
    const auto delay = transaction->fault.delay;
    if (delay.count() > 0) {
        // First, for an answer that comes with the time-out is in time.
        modemThread.post([=, this] { afterCallbacks(transaction, &Modem::answer); }, delay,
                         transaction.get());
        lose(transaction);
        return;
    }
    lock.unlock();
    afterCallbacks(transaction, &Modem::answer);
}

void Modem::carryOut(Client& client, Transaction& transaction) {
    const Request& record = transaction.record;
    const Fault& fault = transaction.fault;
    performAll(fault, Moment::BeforeDelivery);
    if (client.isGone || client.isDeaf) {
        return;
    }
    if (fault.error) {
        transaction.response = refuseRequest(record.messageId, *fault.error);
    } else if (!fault.transportResult) {
        transaction.response =
            service.handleRequest(client.session, record.messageId, record.bytes);
        tellLie(fault.lie, record.messageId, transaction.response);
        reportChangesOf(fault);
        sessionChanged.notify_all();
    }
    performAll(fault, Moment::BeforeReply);
}

void Modem::lose(const TransactionPointer& transaction) {
    // With the machine's clock the sender itself looks to its time-out.
    if (clock.isVirtual() && !transaction->hasTimers) {
        transaction->hasTimers = true;
        modemThread.post([=, this] { expire(transaction); }, transaction->timeout,
                         transaction.get());
    }
}

void Modem::afterCallbacks(const TransactionPointer& transaction,
                           void (Modem::*step)(const TransactionPointer&)) {
    const bool isOrdered = clock.isVirtual() || transaction->fault.order == IndicationOrder::Before;
    if (!isOrdered || transaction->isFromCallback || callbackThread.hasNothingToDo()) {
        (this->*step)(transaction);
    } else {
        // Looks again: a callback may have caused others.
        callbackThread.post(
            [=, this] { modemThread.post([=, this] { afterCallbacks(transaction, step); }); });
    }
}

void Modem::afterCallbacks(std::function<void()> step) {
    if (!clock.isVirtual() || callbackThread.hasNothingToDo()) {
        step();
    } else {
        callbackThread.post([=, this] { modemThread.post([=, this] { afterCallbacks(step); }); });
    }
}

void Modem::expire(const TransactionPointer& transaction) {
    std::lock_guard lock(mutex);
    if (!transaction->isDecided) {
        giveUp(transaction, RAV_CLIENT_ERR_TIMEOUT);
    }
}

void Modem::answer(const TransactionPointer& transaction) {
    std::unique_lock lock(mutex);
    if (transaction->isDecided) {
        return;
    }
    const Client* const client = findClient(transaction->client, false);
    if (client && client->isDeaf) {
        lose(transaction);
        return;
    }
    const int result = transaction->fault.transportResult.value_or(RAV_CLIENT_OK);
    if (transaction->fault.rewrite && result == RAV_CLIENT_OK) {
        runForeignCode(lock, [rewrite = std::exchange(transaction->fault.rewrite, nullptr),
                              &response = transaction->response] {
            rewrite(response.data(), response.size());
        });
    }
    if (decide(transaction, result)) {
        performAll(transaction->fault, Moment::AfterReply);
        finishing.push_back(transaction);
        lock.unlock();
        afterCallbacks(transaction, &Modem::finish);
    }
}

void Modem::finish(const TransactionPointer& transaction) {
    std::unique_lock lock(mutex);
    observe(lock, *transaction);
    letGo(*transaction);
    if (!clock.isVirtual()) {
        deliverHeld();
    }
    std::erase(finishing, transaction);
    finished.notify_all();
    lock.unlock();
    transaction->answered.notify_all();
}

void Modem::letGo(Transaction& transaction) {
    if (transaction.isCounted && !transaction.isAnswered) {
        clock.leaveSender();
        if (transaction.isFromCallback) {
            callbackThread.holdUp(false);
        }
    }
    transaction.isAnswered = true;
}

void Modem::observe(std::unique_lock<std::mutex>& lock, const Transaction& transaction) {
    if (!observer || transaction.observerNumber != observersSoFar) {
        return;
    }
    runForeignCode(lock, [current = observer, record = transaction.record] { current(record); });
}

bool Modem::decide(const TransactionPointer& transaction, int result) {
    if (transaction->isDecided) {
        return false;
    }
    Request& record = transaction->record;
    record.transportResult = result;
    if (result == RAV_CLIENT_OK) {
        wds_response_type_v01 head;
        std::memcpy(&head, transaction->response.data(), sizeof(head));
        record.result = head.result;
        record.error = head.error;
    }
    if (journal.isOpen()) {
        journal.addResponse(now(), transaction->clientNumber, record, transaction->response);
    }
    transaction->isDecided = true;
    if (transaction->hasTimers) {
        modemThread.forget(transaction.get());
    }
    std::erase(open, transaction);
    return true;
}

void Modem::giveUp(const TransactionPointer& transaction, int result) {
    decide(transaction, result);
    if (!transaction->isCounted) {
        letGo(*transaction);
        transaction->answered.notify_all();
    }
    finishing.push_back(transaction);
    // A rewrite that was not run goes with the task, since what it holds is foreign code's.
    modemThread.post([=, this, unused = std::exchange(transaction->fault.rewrite, nullptr)] {
        afterCallbacks(transaction, &Modem::finish);
    });
}

void Modem::abandonRequests(rav_client_type client, int result) {
    const auto candidates = open;
    for (const TransactionPointer& transaction : candidates) {
        if (!client || transaction->client == client) {
            giveUp(transaction, result);
        }
    }
}

void Modem::reset() {
    FaultList oldFaults;  // what all of these hold is foreign, and destroyed outside the lock
    std::function<void(const Request&)> oldObserver;
    std::deque<TransactionPointer> oldLog;
    std::vector<std::function<void(void*, size_t)>> oldRewrites;
    std::unique_lock lock(mutex);
    service.reset();
    endScenario();
    oldFaults = std::exchange(faults, {});
    oldObserver = std::exchange(observer, nullptr);
    ++observersSoFar;
    oldRewrites = takeRewrites();
    callFailures.clear();
    log.swap(oldLog);
    requestCount = 0;
    waitForForeignCode(lock);
    lock.unlock();
}

void Modem::addFault(Fault fault) {
    std::lock_guard lock(mutex);
    faults.add(std::move(fault));
}

void Modem::clearFaults() {
    FaultList oldFaults;
    std::vector<std::function<void(void*, size_t)>> oldRewrites;
    std::unique_lock lock(mutex);
    oldFaults = std::exchange(faults, {});
    oldRewrites = takeRewrites();
    callFailures.clear();
    waitForForeignCode(lock);
    lock.unlock();
}

void Modem::failCall(ModemEmulator::Call call, int result) {
    std::lock_guard lock(mutex);
    callFailures[call] = result;
}

std::optional<int> Modem::takeCallFailure(ModemEmulator::Call call) {
    std::lock_guard lock(mutex);
    const auto failure = callFailures.extract(call);
    return failure ? std::optional(failure.mapped()) : std::nullopt;
}

std::vector<Request> Modem::requests() const {
    std::lock_guard lock(mutex);
    std::vector<Request> records;
    records.reserve(log.size());
    for (const TransactionPointer& transaction : log) {
        records.push_back(transaction->record);
    }
    return records;
}

void Modem::setObserver(std::function<void(const Request&)> newObserver) {
    std::unique_lock lock(mutex);
    std::swap(observer, newObserver);
    ++observersSoFar;
    waitForForeignCode(lock);
    lock.unlock();
}

std::vector<std::function<void(void*, size_t)>> Modem::takeRewrites() {
    std::vector<std::function<void(void*, size_t)>> rewrites;
    for (const TransactionPointer& transaction : open) {
        rewrites.push_back(std::exchange(transaction->fault.rewrite, nullptr));
    }
    return rewrites;
}

void Modem::waitForForeignCode(std::unique_lock<std::mutex>& lock) {
    if (!modemThread.isCurrentThread()) {
        foreignCodeEnded.wait(lock, [this] { return !runsForeignCode; });
    }
}

void Modem::runForeignCode(std::unique_lock<std::mutex>& lock, std::function<void()> code) {
    runsForeignCode = true;
    lock.unlock();
    code();
    code = nullptr;  // what it captured is foreign as well
    lock.lock();
    runsForeignCode = false;
    foreignCodeEnded.notify_all();
}

}  // namespace kiv::emulator
