#ifndef EMULATOR_THREADS_H
#define EMULATOR_THREADS_H

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

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

enum class Thread { Modem, Callback };

/// The name of tasks that may have to be dropped before they run.
struct TaskName {
    enum class Kind { None, Client, Request, PowerOn, Event };
    Kind kind = Kind::None;
    uint64_t number = 0;

    bool operator==(const TaskName&) const = default;
};

/// The emulator's two threads and its notion of time. Each thread carries out tasks in the order in
/// which they fall due, and in the order of posting among tasks that fall due together. The clock
/// is the machine's, or a virtual one that stands still but for its jumps to the next moment at
/// which a task is due: when both threads are at rest and a sender waits, and when told to pass.
///
/// Threads: every operation on any thread. A thread starts with its first task; no lock is held
/// while a task runs.
/// Ownership: must never be destroyed, for the threads are never joined: a process may end while
/// they wait.
/// Blocking: only cancel, waitForDue and pass.
/// Re-entrancy: a task may call every operation but pass.
class Threads {
public:
    using Task = std::function<void()>;

    /// Throws std::system_error, and posts nothing, when the thread can't be started.
    void post(Thread thread, Task task, std::chrono::milliseconds delay = {}, TaskName name = {});

    /// The two halves of post, for a caller that holds a lock which the task takes: call put()
    /// locked, wake() after unlocking. A thread that is woken only to wait for the lock costs two
    /// more switches.
    void put(Thread thread, Task task, std::chrono::milliseconds delay = {}, TaskName name = {});
    void wake(Thread thread) { of(thread).posted.notify_one(); }

    /// Drops the tasks of the name and waits for none.
    void forget(TaskName name);
    /// The same, and waits for the running task of the name. Called within a task it does not
    /// wait: the running task is then the last of the name.
    void cancel(TaskName name);

    /// Waits until everything posted before, and due by now, is done. False at the deadline, which
    /// is a real one, and at once when called within a task of the thread, which can't wait for
    /// itself.
    bool waitForDue(Thread thread, TimePoint deadline);

    bool isCurrent(Thread thread) const { return current == &of(thread); }
    /// Whether nothing is due or running.
    bool isAtRest(Thread thread) const;

    bool isVirtual() const { return virtualTime; }
    void useVirtual(bool on);
    TimePoint now() const;

    /// Jumps to the next due moment, at most so far, and waits until the threads are at rest again.
    /// For the virtual clock.
    void pass(std::chrono::milliseconds atMost);

    /// A sender waits for its answer, until it is answered, not until it wakes up. If it is a
    /// callback, the callback thread counts as at rest meanwhile.
    void enterSender(bool isCallback) { countSender(1, isCallback); }
    void leaveSender(bool isCallback) { countSender(-1, isCallback); }

private:
    struct Entry {
        Task task;
        TaskName name;
    };
    struct Queue {
        const char* const threadName;
        std::map<std::pair<TimePoint, uint64_t>, Entry> tasks{};  ///< by due moment and number
        std::optional<uint64_t> running{};                        ///< the number of the task
        TaskName runningName{};
        bool isHeldUp = false;
        bool isStarted = false;
        std::condition_variable posted{};
    };

    Queue& of(Thread thread) { return queues[static_cast<size_t>(thread)]; }
    const Queue& of(Thread thread) const { return queues[static_cast<size_t>(thread)]; }

    // With the mutex held.
    void run(Queue& queue);
    void runFirst(Queue& queue, std::unique_lock<std::mutex>& lock);
    void drop(TaskName name);
    TimePoint moment() const;
    bool isAtRest(const Queue& queue) const;
    bool areAtRest() const;
    bool jumpUntil(TimePoint limit);
    void countSender(int change, bool isCallback);

    static thread_local const Queue* current;

    mutable std::mutex mutex;           ///< guards all of the following
    std::condition_variable proceeded;  ///< a task is done or dropped, or a thread is at rest
    Queue queues[2] = {{"modem"}, {"modem-callback"}};
    uint64_t nextNumber = 0;
    std::atomic<bool> virtualTime = false;
    TimePoint virtualMoment;
    int senders = 0;
};

}  // namespace kiv::emulator

#endif
