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

/// One thread that carries out tasks: in the order in which they fall due, and in the order of
/// posting among those that fall due together.
///
/// Threads: every operation on any thread. Tasks run on the queue's own thread, which starts with
/// the first task; no lock is held while one runs.
/// Ownership: must never be destroyed, for the thread is never joined: a process may end while it
/// waits.
/// Blocking: only cancel and waitForDue.
/// Re-entrancy: a task may call every operation.
class TaskQueue {
public:
    using Task = std::function<void()>;
    using Owner = const void*;  ///< in whose name a task runs; never dereferenced

    TaskQueue(const char* threadName, Clock& timeSource);
    ~TaskQueue() = delete;
    TaskQueue(const TaskQueue&) = delete;
    TaskQueue& operator=(const TaskQueue&) = delete;

    /// Throws std::system_error, and posts nothing, when the thread can't be started.
    void post(Task task, std::chrono::milliseconds delay = {}, Owner owner = nullptr);

    /// The two halves of post, for who holds a lock that the task needs: a thread that is woken
    /// only to wait for the lock costs two more switches.
    void put(Task task, std::chrono::milliseconds delay = {}, Owner owner = nullptr);
    void wake() const { posted.notify_one(); }

    /// Drops the owner's tasks and waits for its running one. Called within a task it does not
    /// wait: the running task is then the owner's last.
    void cancel(Owner owner);

    /// Drops the owner's tasks and waits for none.
    void forget(Owner owner);

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
        Owner owner;
    };
    struct Running {
        Owner owner;
        uint64_t number;
    };
    using Key = std::pair<TimePoint, uint64_t>;  // due, number

    void start();
    void run();
    void runFirst(std::unique_lock<std::mutex>& lock);
    bool isDone(uint64_t before, TimePoint due) const;

    const char* const name;
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
