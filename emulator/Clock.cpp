#include "Clock.h"

#include "TaskQueue.h"

namespace kiv::emulator {

void Clock::useVirtual(bool on) {
    if (on && !virtualTime) {
        // Not behind what was due on the machine's clock; and in whole milliseconds, so that sums
        // of spans tell the truth.
        const TimePoint now = std::chrono::steady_clock::now() + std::chrono::milliseconds(1);
        moment = std::max(moment, TimePoint(std::chrono::floor<std::chrono::milliseconds>(now)));
    }
    virtualTime = on;
    for (const TaskQueue* queue : queues) {
        queue->wake();
    }
}

void Clock::pass(std::unique_lock<std::mutex>& lock, TimePoint limit) {
    rested.wait(lock, [this] { return isAtRest(); });
    if (!jumpUntil(limit)) {
        moment = std::max(moment, limit);
    }
    rested.wait(lock, [this] { return isAtRest(); });
}

bool Clock::isAtRest() const {
    return std::all_of(queues.begin(), queues.end(), [](const TaskQueue* queue) {
        return queue->isHeldUp() || queue->isAtRest();
    });
}

bool Clock::jumpUntil(TimePoint limit) {
    if (!virtualTime || !isAtRest()) {
        return false;
    }
    std::optional<TimePoint> next;
    for (const TaskQueue* queue : queues) {
        const std::optional<TimePoint> due = queue->isHeldUp() ? std::nullopt : queue->nextDue();
        if (due && (!next || *due < *next)) {
            next = due;
        }
    }
    if (!next || *next > limit) {
        return false;
    }
    moment = *next;
    for (const TaskQueue* queue : queues) {
        queue->wake();
    }
    return true;
}

}  // namespace kiv::emulator
