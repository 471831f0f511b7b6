#ifndef EMULATOR_TASKQUEUE_H
#define EMULATOR_TASKQUEUE_H

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

/// The name of tasks that may have to be dropped before they run.
struct TaskName {
    enum class Kind { None, Client, Request, PowerOn, Event };
    Kind kind = Kind::None;
    uint64_t number = 0;

    bool operator==(const TaskName&) const = default;
};

/// One thread that carries out tasks: in the order in which they fall due, and in the order of
/// posting among those that fall due together.
///
/// Threads: every operation on any thread. Tasks run on the queue's own thread, which starts with
/// the first task; no lock is held while a task runs.
/// Ownership: must never be destroyed, for the thread is never joined: a process may end while the
/// thread waits.
/// Blocking: only cancel and waitForDue.
/// Re-entrancy: a task may call every operation.
class TaskQueue {
public:
    using Task = std::function<void()>;

    TaskQueue(const char* threadName, Clock& timeSource);
    ~TaskQueue() = delete;

    /// Throws std::system_error, and posts nothing, when the thread can't be started.
    void post(Task task, std::chrono::milliseconds delay = {}, TaskName name = {});

    /// The two halves of post, for a caller that holds a lock which the task takes: call put()
    /// locked, wake() after unlocking. A thread that is woken only to wait for the lock costs two
    /// more switches.
    void put(Task task, std::chrono::milliseconds delay = {}, TaskName name = {});
    void wake() const { posted.notify_one(); }

    /// Drops the tasks of the name and waits for the running one. Called within a task it does not
    /// wait: the running task is then the last of the name.
    void cancel(TaskName name);

    /// Drops the tasks of the name and waits for none.
    void forget(TaskName name);

    /// Waits until everything posted before, and due by now, is done. False at the deadline, which
    /// is a real one, and at once when called within a task, which can't wait for itself.
    bool waitForDue(TimePoint deadline);

    bool isCurrentThread() const;

    /// Whether nothing is due or running.
    bool hasNothingToDo() const;

    /// The running task has to wait for another queue from now on, or no longer: time may pass
    /// meanwhile.
    void holdUp(bool isHeldUp);

    // For the clock, with its mutex held.
    bool isAtRest() const;
    bool isHeldUp() const { return heldUp; }
    std::optional<TimePoint> nextDue() const;

private:
    struct Entry {
        Task task;
        TaskName name;
    };
    struct Running {
        TaskName name;
        uint64_t number;
    };
    using Key = std::pair<TimePoint, uint64_t>;  // due, number

    void run();
    void runFirst(std::unique_lock<std::mutex>& lock);
    void drop(TaskName name);
    bool isDone(uint64_t before, TimePoint due) const;

    const char* const threadName;
    Clock& clock;

    std::mutex& mutex;  ///< the clock's
    mutable std::condition_variable posted;
    std::condition_variable finished;
    std::map<Key, Entry> tasks;
    uint64_t nextNumber = 0;
    std::optional<Running> running;
    bool heldUp = false;
    bool started = false;
    std::thread::id thread;
};

}  // namespace kiv::emulator

#endif
