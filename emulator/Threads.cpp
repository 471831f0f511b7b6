#include "Threads.h"

#include <pthread.h>

namespace kiv::emulator {

thread_local const Threads::Queue* Threads::current = nullptr;

void Threads::post(Thread thread, Task task, std::chrono::milliseconds delay, TaskName name) {
    put(thread, std::move(task), delay, name);
    wake(thread);
}

void Threads::put(Thread thread, Task task, std::chrono::milliseconds delay, TaskName name) {
    std::lock_guard lock(mutex);
    Queue& queue = of(thread);
    if (!queue.isStarted) {
        std::thread([this, thread] { run(of(thread)); }).detach();
        queue.isStarted = true;
    }
    queue.tasks.emplace(std::pair(moment() + sensible(delay), nextNumber++),
                        Entry{std::move(task), name});
}

void Threads::forget(TaskName name) {
    std::lock_guard lock(mutex);
    drop(name);
}

void Threads::cancel(TaskName name) {
    std::unique_lock lock(mutex);
    drop(name);
    proceeded.wait(lock, [&] {
        return std::none_of(std::begin(queues), std::end(queues), [&](const Queue& queue) {
            return queue.running && queue.runningName == name && current != &queue;
        });
    });
}

void Threads::drop(TaskName name) {
    for (Queue& queue : queues) {
        std::erase_if(queue.tasks, [name](const auto& task) { return task.second.name == name; });
        queue.posted.notify_one();  // the thread may wait for the moment of a dropped task
    }
    proceeded.notify_all();
}

bool Threads::waitForDue(Thread thread, TimePoint deadline) {
    if (isCurrent(thread)) {
        return false;
    }
    std::unique_lock lock(mutex);
    const Queue& queue = of(thread);
    return proceeded.wait_until(lock, deadline, [&, before = nextNumber, due = moment()] {
        const bool isRunning = queue.running && *queue.running < before;
        return !isRunning && std::none_of(queue.tasks.begin(), queue.tasks.end(), [&](auto& task) {
            return task.first.first <= due && task.first.second < before;
        });
    });
}

bool Threads::isAtRest(Thread thread) const {
    std::lock_guard lock(mutex);
    return isAtRest(of(thread));
}

void Threads::useVirtual(bool on) {
    std::lock_guard lock(mutex);
    if (on && !virtualTime) {
        // Not behind the tasks that were due on the machine's clock; and in whole milliseconds, so
        // that sums of spans tell the truth.
        const TimePoint real = std::chrono::steady_clock::now() + std::chrono::milliseconds(1);
        virtualMoment =
            std::max(virtualMoment, TimePoint(std::chrono::floor<std::chrono::milliseconds>(real)));
    }
    virtualTime = on;
    wake(Thread::Modem);
    wake(Thread::Callback);
}

TimePoint Threads::now() const {
    std::lock_guard lock(mutex);
    return moment();
}

void Threads::pass(std::chrono::milliseconds atMost) {
    std::unique_lock lock(mutex);
    const TimePoint limit = moment() + sensible(atMost);
    proceeded.wait(lock, [this] { return areAtRest(); });
    if (!jumpUntil(limit)) {
        virtualMoment = std::max(virtualMoment, limit);
    }
    proceeded.wait(lock, [this] { return areAtRest(); });
}

TimePoint Threads::moment() const {
    return virtualTime ? virtualMoment : std::chrono::steady_clock::now();
}

bool Threads::isAtRest(const Queue& queue) const {
    return !queue.running && (queue.tasks.empty() || queue.tasks.begin()->first.first > moment());
}

bool Threads::areAtRest() const {
    return std::all_of(std::begin(queues), std::end(queues),
                       [this](const Queue& queue) { return queue.isHeldUp || isAtRest(queue); });
}

bool Threads::jumpUntil(TimePoint limit) {
    if (!virtualTime || !areAtRest()) {
        return false;
    }
    TimePoint next = TimePoint::max();
    for (const Queue& queue : queues) {
        if (!queue.isHeldUp && !queue.tasks.empty()) {
            next = std::min(next, queue.tasks.begin()->first.first);
        }
    }
    if (next > limit || next == TimePoint::max()) {
        return false;
    }
    virtualMoment = next;
    wake(Thread::Modem);
    wake(Thread::Callback);
    return true;
}

void Threads::countSender(int change, bool isCallback) {
    std::lock_guard lock(mutex);
    senders += change;
    if (isCallback) {
        of(Thread::Callback).isHeldUp = change > 0;
    }
}

void Threads::run(Queue& queue) {
    pthread_setname_np(pthread_self(), queue.threadName);
    current = &queue;
    std::unique_lock lock(mutex);
    for (;;) {
        const bool isEmpty = queue.tasks.empty();
        const TimePoint due = isEmpty ? TimePoint::max() : queue.tasks.begin()->first.first;
        if (!isEmpty && due <= moment()) {
            runFirst(queue, lock);
        } else if (senders == 0 || !jumpUntil(TimePoint::max())) {
            proceeded.notify_all();
            if (!isEmpty && !virtualTime) {
                queue.posted.wait_until(lock, due);
            } else {
                queue.posted.wait(lock);
            }
        }
    }
}

void Threads::runFirst(Queue& queue, std::unique_lock<std::mutex>& lock) {
    const auto first = queue.tasks.begin();
    Task task = std::move(first->second.task);
    queue.running = first->first.second;
    queue.runningName = first->second.name;
    queue.tasks.erase(first);
    lock.unlock();
    task();
    task = nullptr;  // what it captured must be gone before a waiter may go on
    lock.lock();
    queue.running.reset();
    proceeded.notify_all();
}

}  // namespace kiv::emulator
