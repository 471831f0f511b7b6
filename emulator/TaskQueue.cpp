#include "TaskQueue.h"

#include <pthread.h>

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

TaskQueue::TaskQueue(const char* threadName, Clock& timeSource)
    : threadName(threadName), clock(timeSource), mutex(timeSource.mutex) {
    std::lock_guard lock(mutex);
    clock.add(*this);
}

void TaskQueue::post(Task task, std::chrono::milliseconds delay, TaskName name) {
    put(std::move(task), delay, name);
    wake();
}

void TaskQueue::put(Task task, std::chrono::milliseconds delay, TaskName name) {
    std::lock_guard lock(mutex);
    if (!started) {
        std::thread([this] { run(); }).detach();
        started = true;
    }
    tasks.emplace(Key(clock.now() + sensible(delay), nextNumber++), Entry{std::move(task), name});
}

void TaskQueue::cancel(TaskName name) {
    std::unique_lock lock(mutex);
    drop(name);
    if (thread != std::this_thread::get_id()) {
        finished.wait(lock, [&] { return !running || running->name != name; });
    }
}

void TaskQueue::forget(TaskName name) {
    std::lock_guard lock(mutex);
    drop(name);
}

void TaskQueue::drop(TaskName name) {
    std::erase_if(tasks, [name](const auto& task) { return task.second.name == name; });
    finished.notify_all();
    posted.notify_one();  // the thread may wait for the moment of a dropped task
}

bool TaskQueue::waitForDue(TimePoint deadline) {
    std::unique_lock lock(mutex);
    if (thread == std::this_thread::get_id()) {
        return false;
    }
    const uint64_t before = nextNumber;
    const TimePoint due = clock.now();
    return finished.wait_until(lock, deadline, [&] { return isDone(before, due); });
}

bool TaskQueue::isDone(uint64_t before, TimePoint due) const {
    if (running && running->number < before) {
        return false;
    }
    for (const auto& [key, entry] : tasks) {
        if (key.first > due) {
            break;
        }
        if (key.second < before) {
            return false;
        }
    }
    return true;
}

bool TaskQueue::hasNothingToDo() const {
    std::lock_guard lock(mutex);
    return isAtRest();
}

void TaskQueue::holdUp(bool isHeldUp) {
    std::lock_guard lock(mutex);
    heldUp = isHeldUp;
}

bool TaskQueue::isAtRest() const {
    return !running && (tasks.empty() || tasks.begin()->first.first > clock.now());
}

std::optional<TimePoint> TaskQueue::nextDue() const {
    return tasks.empty() ? std::nullopt : std::optional(tasks.begin()->first.first);
}

bool TaskQueue::isCurrentThread() const {
    std::lock_guard lock(mutex);
    return thread == std::this_thread::get_id();
}

void TaskQueue::run() {
    pthread_setname_np(pthread_self(), threadName);
    std::unique_lock lock(mutex);
    thread = std::this_thread::get_id();
    for (;;) {
        const std::optional<TimePoint> due = nextDue();
        if (due && *due <= clock.now()) {
            runFirst(lock);
        } else if (!clock.jump()) {
            clock.rested.notify_all();
            if (due && !clock.isVirtual()) {
                posted.wait_until(lock, *due);
            } else {
                posted.wait(lock);
            }
        }
    }
}

void TaskQueue::runFirst(std::unique_lock<std::mutex>& lock) {
    const auto first = tasks.begin();
    Task task = std::move(first->second.task);
    running = Running{first->second.name, first->first.second};
    tasks.erase(first);
    lock.unlock();
    task();
    task = nullptr;  // what it captured must be gone before a waiter may go on
    lock.lock();
    running.reset();
    finished.notify_all();
}

}  // namespace kiv::emulator
