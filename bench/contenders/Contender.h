#ifndef BENCH_CONTENDERS_CONTENDER_H
#define BENCH_CONTENDERS_CONTENDER_H

#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

namespace kiv::bench {

/// What a contender is to carry out on its thread: any callable that outlives the call.
class Task {
public:
    template <class Callable>
    explicit Task(Callable& callable)
        : data(&callable), call([](void* it) { (*static_cast<Callable*>(it))(); }) {}
    void operator()() const { call(data); }

private:
    void* data;
    void (*call)(void*);
};

/// Somebody else's way to have a thread do something and to wait for it. One client at a time.
class Contender {
public:
    virtual ~Contender() = default;
    virtual void run(const Task& task) = 0;
};

/// Where the client waits with those who bring only one way along.
class Answer {
public:
    void give() {
        {
            std::lock_guard lock(mutex);
            given = true;
        }
        changed.notify_one();
    }
    void take() {
        std::unique_lock lock(mutex);
        changed.wait(lock, [this] { return given; });
        given = false;
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
    bool given = false;
};

/// The least that a mutex, a condition variable, an eventfd and epoll can do.
std::unique_ptr<Contender> makeFloor();
std::unique_ptr<Contender> makeLooper();
std::unique_ptr<Contender> makeLibuv();
std::unique_ptr<Contender> makeAsio();

struct NamedContender {
    const char* name;
    std::unique_ptr<Contender> (*make)();
};

/// Those whose packages are installed.
std::vector<NamedContender> contenders();

}  // namespace kiv::bench

#endif
