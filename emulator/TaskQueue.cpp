#include "TaskQueue.h"

#include <pthread.h>

namespace kiv::emulator {

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
