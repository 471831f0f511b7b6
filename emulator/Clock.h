#ifndef EMULATOR_CLOCK_H
#define EMULATOR_CLOCK_H

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <vector>

namespace kiv::emulator {

using TimePoint = std::chrono::steady_clock::time_point;

/// Negative spans count as none, and absurd ones as a year, so that no sum overflows.
inline std::chrono::milliseconds sensible(std::chrono::milliseconds span) {
    constexpr std::chrono::milliseconds kLongest = std::chrono::hours(24 * 365);
    return std::clamp(span, std::chrono::milliseconds(0), kLongest);
}

/// The real moment that lies so far ahead: the limit of a wait for another thread.
inline TimePoint realTimeAfter(std::chrono::milliseconds span) {
    return std::chrono::steady_clock::now() + sensible(span);
}

class TaskQueue;

/// The emulator's notion of time: everything that is due asks here. It is the machine's clock, or a
/// virtual one that stands still but for its jumps to the next moment at which a task is due. It
/// jumps when every queue is at rest and a sender waits inside, and when it is told to.
///
/// Threads: any, with the mutex held, but for isVirtual.
/// Ownership: outlives its queues, and like them is never destroyed.
/// Blocking: only pass.
class Clock {
public:
    /// Of the clock and of all its queues, so that a jump sees every one of them at rest.
    std::mutex mutex;

    void add(const TaskQueue& queue) { queues.push_back(&queue); }
    bool isVirtual() const { return virtualTime; }
    void useVirtual(bool on);
    TimePoint now() const { return virtualTime ? moment : std::chrono::steady_clock::now(); }

    /// The same for a caller without the mutex.
    TimePoint timeNow() {
        std::lock_guard lock(mutex);
        return now();
    }

    /// Jumps if every queue is at rest and a sender waits; false if it did not.
    bool jump() { return senders > 0 && jumpUntil(TimePoint::max()); }

    /// Jumps to the next due moment and waits until the queues are at rest again; without one
    /// before the limit jumps there. For the virtual clock; not within a task.
    void pass(std::unique_lock<std::mutex>& lock, TimePoint limit);

    /// One sender more, or less, that waits inside: until the moment at which it is answered, not
    /// until it wakes up. These two take the mutex themselves.
    void enterSender() { countSender(1); }
    void leaveSender() { countSender(-1); }

    /// Is told by each queue that has come to rest.
    std::condition_variable rested;

private:
    void countSender(int change) {
        std::lock_guard lock(mutex);
        senders += change;
    }
    bool isAtRest() const;
    bool jumpUntil(TimePoint limit);

    std::vector<const TaskQueue*> queues;
    std::atomic<bool> virtualTime = false;
    TimePoint moment;  ///< of the virtual clock
    int senders = 0;
};

}  // namespace kiv::emulator

#endif
