#include "Mailbox.h"

#include <cerrno>
#include <cstring>
#include <utility>

#include "ClientResponse.h"
#include "LogWrapper.h"
#include "Semaphore.h"

namespace kiv {

/// A client's stay in the mailbox, on the stack of that client's thread.
struct Mailbox::Turn {
    const ClientRequest* request = nullptr;
    Turn* next = nullptr;
    std::shared_ptr<ClientResponse> response{};
    /// What writing to the eventfd returned, and errno then.
    ssize_t written = sizeof(uint64_t);
    int error = 0;
    /// The client may leave. Posted once, as the last that is done to the turn.
    Semaphore over{};

    bool isSignalled() const { return written == static_cast<ssize_t>(sizeof(uint64_t)); }
};

void Mailbox::Queue::append(Turn& turn) {
    (first == nullptr ? first : last->next) = &turn;
    last = &turn;
}

Mailbox::Turn* Mailbox::Queue::takeFirst() {
    return first == nullptr ? nullptr : std::exchange(first, first->next);
}

int Mailbox::open() {
    requestFd.reset(createEventFd());
    return requestFd.get();
}

// Client threads.

std::shared_ptr<ClientResponse> Mailbox::post(const ClientRequest& request) {
    Turn turn{&request};
    bool isFirst = false;
    {
        std::lock_guard lock(mutex);
        if (closed) {
            return nullptr;
        }
        waiting.append(turn);
        isFirst = waiting.first == &turn;
    }
    bool takenBack = false;
    if (isFirst) {
        // Not under the lock, for which the worker would have to wait as soon as it wakes.
        signalFor(turn);
        takenBack = !turn.isSignalled() && takeBack(turn);
    }
    if (!takenBack) {
        turn.over.wait();
    }
    if (!turn.isSignalled()) {
        KIV_LOG(ERROR, "error in writing rv: %d error: %s", static_cast<int>(turn.written),
                strerror(turn.error));
    }
    return std::move(turn.response);
}

void Mailbox::signalFor(Turn& first) const {
    first.written = signalEventFd(requestFd.get());
    first.error = errno;
}

/// False if a worker that was awake has served the request all the same, or is about to.
bool Mailbox::takeBack(Turn& turn) {
    std::lock_guard lock(mutex);
    if (waiting.first != &turn || inHand == &turn) {
        return false;
    }
    waiting.takeFirst();
    passOn();
    return true;
}

/// Signals for the turn that has become the first. The thread that has removed the previous first
/// turn does that, so that the client of this one sleeps until its response is there.
void Mailbox::passOn() {
    while (waiting.first != nullptr) {
        signalFor(*waiting.first);
        if (waiting.first->isSignalled()) {
            return;
        }
        waiting.takeFirst()->over.post();
    }
}

// Worker thread.

const ClientRequest* Mailbox::take() {
    std::lock_guard lock(mutex);
    inHand = waiting.first;
    return inHand == nullptr ? nullptr : inHand->request;
}

void Mailbox::finish(std::shared_ptr<ClientResponse> response) {
    Turn* answered = nullptr;
    {
        std::lock_guard lock(mutex);
        Turn* const turn = waiting.takeFirst();
        inHand = nullptr;
        turn->next = nullptr;
        turn->response = std::move(response);
        if (turn->response || closed) {
            answered = turn;
        } else {
            unanswered.append(*turn);
        }
        passOn();
    }
    if (answered != nullptr) {
        // Not under the lock: the client would be woken just to wait for the worker.
        answered->over.post();
    }
}

// The end.

void Mailbox::close() {
    std::lock_guard lock(mutex);
    closed = true;
    Queue others = waiting;
    if (inHand != nullptr) {
        others.takeFirst();
        inHand->next = nullptr;
        waiting.last = inHand;
    } else {
        waiting = {};
    }
    letGo(others);
    letGo(unanswered);
}

void Mailbox::letGo(Queue& turns) {
    while (Turn* const turn = turns.takeFirst()) {
        turn->over.post();
    }
}

}  // namespace kiv
