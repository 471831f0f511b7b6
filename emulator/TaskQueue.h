#ifndef EMULATOR_TASKQUEUE_H
#define EMULATOR_TASKQUEUE_H

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

#include "Clock.h"

namespace kiv::emulator {

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
    TaskQueue(const TaskQueue&) = delete;
    TaskQueue& operator=(const TaskQueue&) = delete;

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
