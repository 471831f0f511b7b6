#ifndef KIVR_SRC_EVENTMANAGER_H
#define KIVR_SRC_EVENTMANAGER_H

#include <sys/epoll.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>

#include "EventFd.h"
#include "ThreadSafety.h"

namespace kiv {

/// Called when the descriptor is readable, or when its handler is removed.
using EventCallback = void (*)(int fd, void* data);
using CloseCallback = void (*)(int fd, void* data);

/// An epoll loop over file descriptors.
///
/// Threads: processEvents and finishItem belong to the loop's one thread, on which all callbacks
/// run. Everything else may be called on any thread.
/// Ownership: descriptors belong to those who register them; only a descriptor that hangs up is
/// closed here. Handlers that are left at destruction are dropped without a call.
/// Failure: a callback or deferred work that throws std::bad_alloc is given up, with a line in the
/// log; processEvents goes on.
/// Blocking: processEvents waits for an event, without a time-out, but while the system has no room
/// to watch some descriptor it tries again every 100 ms. Nothing else blocks.
/// Re-entrancy: a callback may add and remove handlers, its own too. No lock is held while it
/// runs.
class EventManager {
public:
    /// Aborts the process if the system grants no epoll instance or eventfd.
    EventManager();
    ~EventManager();
    EventManager(const EventManager&) = delete;
    EventManager& operator=(const EventManager&) = delete;

    /// Watches fd for the epoll events and approves it. False, without effect, if it is already
    /// registered. closeCallback may be null.
    bool addEventHandler(int fd, EventCallback callback, void* data, CloseCallback closeCallback,
                         int events);
    /// Runs the close callback, forgets fd and withdraws its approval; does not close it. A
    /// callback that is running on another thread at that moment is not waited for.
    void removeEventHandler(int fd);

    /// Waits for events and runs the callbacks of at most four of them.
    void processEvents();
    /// Makes processEvents return.
    void wake();

    /// Makes an eventfd readable after a while, for what did not work this time. Loop thread only.
    void signalLater(int eventFd) { signalledLater = eventFd; }

    /// For good: whoever works for the loop, or asks the modem on its behalf, comes to an end.
    void stop() { stopped.store(true); }
    bool isStopped() const { return stopped.load(); }

    /// Has work done on the loop's thread once the item in hand is done. From another thread, the
    /// caller sees to it that the loop gets something to do.
    void defer(std::function<void()> work);
    /// Runs the deferred work, in order, until none is left. Whoever serves several items in one
    /// callback calls this after each.
    void finishItem();

    /// Reads fd empty; the callback of a descriptor that carries no data.
    static void clearRead(int fd, void* data);

    /// The process-wide set of the descriptors that may be dispatched.
    static bool isApprovedFd(int fd);
    static void addApprovedFd(int fd);
    static void remApprovedFd(int fd);

private:
    struct HandlerObject {
        EventCallback callback = nullptr;
        CloseCallback closeCallback = nullptr;
        void* data = nullptr;
        int requestedEvents = 0;
        bool lacksRoom = false;  ///< is yet to be watched
    };

    bool watch(int fd, HandlerObject& handler) KIV_REQUIRES(mutex);
    bool watchAgain() KIV_EXCLUDES(mutex);
    void processEvent(int fd, uint32_t flags);
    void dispatch(int fd);
    std::optional<HandlerObject> findHandler(int fd) KIV_EXCLUDES(mutex);
    std::function<void()> takeDeferred() KIV_EXCLUDES(mutex);

    // Constant.
    const OwnedFd epollFd;
    const OwnedFd wakeFd;

    // Self-synchronised.
    std::atomic<bool> stopped{false};

    // Loop thread only.
    std::array<epoll_event, 4> events{};
    int signalledLater = -1;  ///< none if -1

    // Guarded.
    std::mutex mutex;
    std::map<int, HandlerObject> handlers KIV_GUARDED_BY(mutex);
    std::deque<std::function<void()>> deferred KIV_GUARDED_BY(mutex);
};

}  // namespace kiv

#endif
