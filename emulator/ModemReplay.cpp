// The part of the modem that replays a journal: what the modem did is done again as soon as all
// that came before it in the journal has happened, and its time has come.

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <utility>

#include "Encoding.h"
#include "Modem.h"

namespace kiv::emulator {

bool Modem::startReplay(const std::string& path, std::string& error) {
    try {
        std::ifstream stream(path, std::ios::binary);
        if (!stream) {
            throw ReplayError("it can't be read");
        }
        auto lines = readJournal(stream);
        std::lock_guard lock(mutex);
        if (!clock.isVirtual() || running || !clients.empty() || replay) {
            error = path + ": not replayed, the modem is in use or not on the virtual clock";
            return false;
        }
        clientCount = 0;
        replay = std::make_unique<Replay>(path, std::move(lines), now());
        playOn();
        return true;
    } catch (const ReplayError& failure) {
        error = path + ": " + failure.what();
        return false;
    }
}

std::optional<std::string> Modem::finishReplay() {
    std::lock_guard lock(mutex);
    if (!replay) {
        return std::nullopt;
    }
    const auto unseen = std::find_if(open.begin(), open.end(),
                                     [](const auto& transaction) { return !transaction->isTaken; });
    if (unseen != open.end()) {
        differFrom(**unseen);
    }
    replay->finish();
    auto difference = replay->firstDifference();
    replay.reset();
    endReplay();
    return difference;
}

void Modem::endReplay() {
    modemThread.forget(&replay);
    abandonRequests(nullptr, RAV_CLIENT_ERR_SERVICE_GONE);
    for (const TransactionPointer& transaction : std::exchange(answeredInReplay, {})) {
        finishLater(transaction);
    }
    stopNow(false);
}

bool Modem::noteProgram(const char* what) {
    if (journal.isOpen()) {
        journal.addEvent(now(), kProgram, 0, what);
    }
    if (replay) {
        replay->noteProgram(what);
        playOn();
    }
    return replay != nullptr;
}

void Modem::differFrom(const Transaction& transaction) {
    const RecordedLine* const line = replay->next();
    replay->differ(std::string("sent ") + messageName(transaction.record.messageId) +
                   ", recorded " + (line ? line->describe() : "nothing more"));
}

void Modem::playOn() {
    if (!isReplaying()) {
        return;
    }
    modemThread.forget(&replay);
    while (const RecordedLine* line = replay->next()) {
        const TimePoint moment = now();
        if (!line->isAwaited() && replay->due(*line) > moment) {
            playAt(std::chrono::ceil<std::chrono::milliseconds>(replay->due(*line) - moment));
            break;
        }
        if (!playLine(*line)) {
            break;
        }
        replay->advance();
        if (isReplaying() && waitsForCallbacks()) {
            playAt({});
            return;
        }
    }
    if (replay->firstDifference()) {
        endReplay();
        return;
    }
    // A sender goes on when all that came with its answer has been done.
    for (const TransactionPointer& transaction : std::exchange(answeredInReplay, {})) {
        finishLater(transaction);
    }
}

void Modem::finishLater(const TransactionPointer& transaction) {
    finishing.push_back(transaction);
    modemThread.post([=, this] { afterCallbacks(transaction, &Modem::finish); });
}

void Modem::playAt(std::chrono::milliseconds delay) {
    modemThread.post(
        [this] {
            afterCallbacks([this] {
                std::lock_guard lock(mutex);
                playOn();
            });
        },
        delay, &replay);
}

bool Modem::waitsForCallbacks() const {
    // One that waits for an answer itself is not waited for.
    const auto isFromCallback = [](const auto& transaction) { return transaction->isFromCallback; };
    return std::none_of(open.begin(), open.end(), isFromCallback) &&
           std::none_of(answeredInReplay.begin(), answeredInReplay.end(), isFromCallback) &&
           !callbackThread.hasNothingToDo();
}

bool Modem::playLine(const RecordedLine& line) {
    if (line.direction == kOpen) {
        return clientCount >= line.client;
    }
    if (line.direction == kRequest) {
        return takeRecorded(line);
    }
    if (line.direction == kResponse) {
        answerAsRecorded(line);
    } else if (line.direction == kEvent) {
        playEvent(line);
    } else if (line.direction == kProgram) {
        return replay->takeProgram(line);
    } else {
        return playCallback(line);
    }
    return true;
}

void Modem::playEvent(const RecordedLine& line) {
    if (line.what == kServiceUp) {
        startNow();
    } else if (line.what == kServiceDown || line.what == kServiceDownSilently) {
        stopNow(line.what == kServiceDownSilently);
    } else {
        noteEvent(line.what);
    }
}

bool Modem::playCallback(const RecordedLine& line) {
    const auto found = std::find_if(clients.begin(), clients.end(), [&](const auto& entry) {
        return entry.second.number == line.client;
    });
    if (found == clients.end()) {
        return true;  // released by now
    }
    auto& [handle, client] = *found;
    if (line.direction == kIndication) {
        postIndication(handle, client, line.messageId,
                       unpackBytes(line.packed, SIZE_MAX).value_or(std::vector<std::byte>()));
    } else if (line.direction == kNotify) {
        postNotification(
            handle, client,
            line.what == kAppeared ? RAV_CLIENT_SERVICE_APPEARED : RAV_CLIENT_SERVICE_DISAPPEARED);
        return client.notify != nullptr;
    } else {
        postError(handle, client);
        return client.error != nullptr;
    }
    return true;
}

bool Modem::takeRecorded(const RecordedLine& line) {
    const auto found = std::find_if(open.begin(), open.end(), [&](const auto& transaction) {
        return transaction->clientNumber == line.client && !transaction->isTaken;
    });
    if (found == open.end() || !replay->isAsRecorded(line, (*found)->record)) {
        return false;
    }
    (*found)->isTaken = true;
    if (journal.isOpen()) {
        journal.addRequest(now(), line.client, (*found)->record);
    }
    return true;
}

void Modem::answerAsRecorded(const RecordedLine& line) {
    // One that failed may have done so before the modem took it.
    const bool hasFailed = line.transport != RAV_CLIENT_OK;
    const auto found = std::find_if(open.begin(), open.end(), [&](const auto& transaction) {
        return transaction->clientNumber == line.client &&
               transaction->record.messageId == line.messageId &&
               (hasFailed || transaction->isTaken);
    });
    if (found == open.end()) {
        // A sender that finds the service gone may come too late to be counted as one.
        if (!hasFailed) {
            replay->differ("recorded an answer, and there is no request");
        }
        return;
    }
    const TransactionPointer transaction = *found;
    const unsigned messageId = transaction->record.messageId;
    transaction->response = unpackBytes(line.packed, SIZE_MAX).value_or(std::vector<std::byte>());
    Client* const client = findClient(transaction->client, false);
    decide(transaction, line.transport);
    // What was not answered may well have been done, and mostly was.
    const bool isRefused = transaction->record.result != WDS_RESULT_SUCCESS_V01;
    if (client && !isRefused && isOfSession(messageId)) {
        service.handleRequest(client->session, messageId, transaction->record.bytes);
        sessionChanged.notify_all();
    }
    answeredInReplay.push_back(transaction);
}

void Modem::takeForReplay(const TransactionPointer& transaction) {
    if (!isReplaying()) {
        giveUp(transaction, RAV_CLIENT_ERR_SERVICE_GONE);
        return;
    }
    // The journal has the time-outs, too: this one is for what it doesn't answer.
    constexpr std::chrono::minutes kLongAfter(1);
    modemThread.post(
        [=, this] {
            std::lock_guard lock(mutex);
            if (!transaction->isDecided && isReplaying()) {
                differFrom(*transaction);
                endReplay();
            }
        },
        transaction->timeout + kLongAfter, transaction.get());
    transaction->hasTimers = true;
    playOn();
}

}  // namespace kiv::emulator
