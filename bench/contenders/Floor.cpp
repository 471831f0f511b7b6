#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>
#include <thread>

#include "Contender.h"

namespace kiv::bench {

namespace {

/// An epoll loop on an eventfd, whose one handler finds its task in a slot.
class PingPong : public Contender {
public:
    PingPong() {
        epoll_event event{};
        event.events = EPOLLIN;
        epoll_ctl(epollFd, EPOLL_CTL_ADD, eventFd, &event);
        worker = std::thread([this] {
            while (!stopped) {
                epoll_event ready{};
                if (epoll_wait(epollFd, &ready, 1, -1) == 1) {
                    drain();
                    serve();
                }
            }
        });
    }
    ~PingPong() override {
        auto stop = [this] { stopped = true; };
        exchange(Task(stop));
        worker.join();
        close(eventFd);
        close(epollFd);
    }
    void run(const Task& task) override { exchange(task); }

private:
    void exchange(const Task& task) {
        {
            std::lock_guard lock(mutex);
            slot = &task;
        }
        signal();
        std::unique_lock lock(mutex);
        done.wait(lock, [this] { return slot == nullptr; });
    }
    void serve() {
        const Task* task = nullptr;
        {
            std::lock_guard lock(mutex);
            task = slot;
        }
        (*task)();
        {
            std::lock_guard lock(mutex);
            slot = nullptr;
        }
        done.notify_one();
    }
    void signal() {
        const uint64_t one = 1;
        static_cast<void>(!write(eventFd, &one, sizeof(one)));
    }
    void drain() {
        uint64_t count = 0;
        static_cast<void>(!read(eventFd, &count, sizeof(count)));
    }

    const int epollFd = epoll_create1(EPOLL_CLOEXEC);
    const int eventFd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    std::mutex mutex;
    std::condition_variable done;
    const Task* slot = nullptr;
    bool stopped = false;  ///< the worker's own
    std::thread worker;
};

}  // namespace

std::unique_ptr<Contender> makeFloor() { return std::make_unique<PingPong>(); }

}  // namespace kiv::bench
