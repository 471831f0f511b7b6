#include "EventManager.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>
#include <set>
#include <string>
#include <utility>

#include "EventFd.h"
#include "LogWrapper.h"
#include "NeverDestroyed.h"
#include "StandardOutput.h"

namespace kiv {

namespace {

constexpr int kTryAgainMs = 100;

/// The descriptors that may be dispatched, for all event managers of the process.
class ApprovedFds {
public:
    bool contains(int fd) {
        std::lock_guard lock(mutex);
        return fds.count(fd) > 0;
    }
    void add(int fd) {
        std::lock_guard lock(mutex);
        fds.insert(fd);
    }
    void remove(int fd) {
        std::lock_guard lock(mutex);
        fds.erase(fd);
    }

private:
    std::mutex mutex;
    std::set<int> fds KIV_GUARDED_BY(mutex);
};

ApprovedFds& approvedFd() {
    static NeverDestroyed<ApprovedFds> instance;
    return instance.get();
}

void* address(EventCallback callback) { return reinterpret_cast<void*>(callback); }

/// The names of the flags that nobody handles, each with a trailing blank.
std::string unhandledFlagNames(uint32_t flags) {
    constexpr std::pair<uint32_t, const char*> kNames[] = {{EPOLLOUT, "EPOLLOUT "},
                                                           {EPOLLPRI, "EPOLLPRI "},
                                                           {EPOLLERR, "EPOLLERR "},
                                                           {EPOLLET, "EPOLLET "}};
    std::string names;
    for (const auto& [flag, name] : kNames) {
        names += flags & flag ? name : "";
    }
    return names;
}

/// An item that lacks memory must not end the loop's thread, and with it the process.
template <class Item>
void withoutEnding(Item&& item) {
    try {
        item();
    } catch (const std::bad_alloc&) {
        KIV_LOG(ERROR, "EventManager: out of memory");
    }
}

int createEpoll() {
    const int fd = epoll_create1(EPOLL_CLOEXEC);
    if (fd == -1) {
        KIV_LOG(ERROR, "Cannot create epoll instance");
        abort();
    }
    return fd;
}

}  // namespace

EventManager::EventManager() : epollFd(createEpoll()), wakeFd(createEventFd()) {
    addEventHandler(wakeFd.get(), clearRead, nullptr, nullptr, EPOLLIN | EPOLLHUP);
    KIV_LOG(VERBOSE, "EventManager is ready. epollFd:%d", epollFd.get());
}

EventManager::~EventManager() { removeEventHandler(wakeFd.get()); }

bool EventManager::addEventHandler(int fd, EventCallback callback, void* data,
                                   CloseCallback closeCallback, int requestedEvents) {
    KIV_LOG(VERBOSE,
            "EventManager::addEventHandler(int %d, EventCallback %p, void* %p, CloseCallback %p, "
            "events %d) EX",
            fd, address(callback), data, address(closeCallback), requestedEvents);
    bool added = false;
    bool watched = false;
    bool lacksRoom = false;
    {
        // One step: the loop must not see the descriptor ready before its handler is there.
        std::lock_guard lock(mutex);
        const auto place =
            handlers.emplace(fd, HandlerObject{callback, closeCallback, data, requestedEvents});
        added = place.second;
        if (added) {
            approvedFd().add(fd);
            HandlerObject& handler = place.first->second;
            watched = watch(fd, handler);
            lacksRoom = handler.lacksRoom;
        }
    }
    if (!added) {
        KIV_LOG(INFO, "fd=%d is already in handlers", fd);
        return false;
    }
    if (!watched) {
        // Meant: the handler stays registered and approved all the same.
        KIV_LOG(ERROR, "Cannot add event handler");
    }
    if (lacksRoom) {
        // The loop may be waiting without a time-out.
        signalEventFd(wakeFd.get());
    }
    return true;
}

bool EventManager::watch(int fd, HandlerObject& handler) {
    epoll_event event{};
    event.events = static_cast<uint32_t>(handler.requestedEvents);
    event.data.fd = fd;
    const bool watched = epoll_ctl(epollFd.get(), EPOLL_CTL_ADD, fd, &event) != -1;
    handler.lacksRoom = !watched && (errno == ENOMEM || errno == ENOSPC);
    return watched;
}

/// Watches the descriptors for which there was no room: the clients of a mailbox that nobody
/// watches would wait for ever. False if there is still no room for one of them.
bool EventManager::watchAgain() {
    bool allWatched = true;
    std::lock_guard lock(mutex);
    for (auto& [fd, handler] : handlers) {
        if (handler.lacksRoom) {
            watch(fd, handler);
            allWatched &= !handler.lacksRoom;
        }
    }
    return allWatched;
}

void EventManager::removeEventHandler(int fd) {
    KIV_LOG(VERBOSE, "EventManager::removeEventHandler(int fd) EX");
    bool unwatched = false;
    HandlerObject removed;
    {
        // One step: the loop must not watch the descriptor once more.
        std::lock_guard lock(mutex);
        unwatched = epoll_ctl(epollFd.get(), EPOLL_CTL_DEL, fd, nullptr) != -1;
        const auto found = handlers.find(fd);
        if (found != handlers.end()) {
            removed = found->second;
            found->second.lacksRoom = false;
            // A close callback that removes its own handler is not called again.
            found->second.closeCallback = nullptr;
        }
    }
    if (!unwatched) {
        KIV_LOG(ERROR, "Cannot remove event handler");
    }
    if (removed.closeCallback != nullptr) {
        removed.closeCallback(fd, removed.data);
    }
    size_t erased = 0;
    {
        std::lock_guard lock(mutex);
        erased = handlers.erase(fd);
    }
    if (erased == 0) {
        KIV_LOG(ERROR, "handlers.erase for fd %d, returned %d!", fd, 0);
    }
    remApprovedFd(fd);
}

void EventManager::processEvents() {
    const int later = std::exchange(signalledLater, -1);
    const int timeout = watchAgain() && later == -1 ? -1 : kTryAgainMs;
    const int count =
        epoll_wait(epollFd.get(), events.data(), static_cast<int>(events.size()), timeout);
    if (later != -1) {
        signalEventFd(later);
    }
    if (count == -1) {
        // An interrupted wait too: the caller's loop tests its flag and waits again.
        KIV_LOG(ERROR, "epoll_wait error");
        finishItem();
        return;
    }
    for (int i = 0; i < count; ++i) {
        const epoll_event& event = events[static_cast<size_t>(i)];
        const int fd = event.data.fd;
        KIV_LOG(VERBOSE, "there are %d file descriptor(s) with events pending", count - i);
        KIV_LOG(VERBOSE, "processing event number: %d, handling %d for %d", i,
                static_cast<int>(event.events), fd);
        withoutEnding([this, fd, &event] { processEvent(fd, event.events); });
        finishItem();
    }
}

void EventManager::processEvent(int fd, uint32_t flags) {
    if (flags & EPOLLHUP) {
        // Meant: a hang-up counts alone, even if there is something to read.
        KIV_LOG(INFO, "file descriptor '%d' sent HUP.", fd);
        // An earlier callback of the same pass may have removed and closed fd. The number may be
        // another owner's by now, and is left alone unless that owner registered it here.
        if (findHandler(fd)) {
            removeEventHandler(fd);
            close(fd);
        }
    } else if (flags & EPOLLIN) {
        dispatch(fd);
    } else {
        KIV_LOG(INFO, "Unhandled epoll event: %s [flags 0%o]", unhandledFlagNames(flags).c_str(),
                flags);
    }
}

std::optional<EventManager::HandlerObject> EventManager::findHandler(int fd) {
    {
        std::lock_guard lock(mutex);
        const auto found = handlers.find(fd);
        if (found != handlers.end()) {
            return found->second;
        }
    }
    KIV_LOG(INFO, "file descriptor '%d' does not have an event handler registered", fd);
    return std::nullopt;
}

void EventManager::dispatch(int fd) {
    if (!isApprovedFd(fd)) {
        KIV_LOG(INFO, "file descriptor %d is not on the approved list, cannot process event", fd);
        return;
    }
    const std::optional<HandlerObject> handler = findHandler(fd);
    if (!handler) {
        return;
    }
    KIV_LOG(VERBOSE, "file descriptor '%d' is processing events [callback:%p, data:%p]", fd,
            address(handler->callback), handler->data);
    if (handler->callback == nullptr) {
        KIV_LOG(ERROR, "no callback registered");
        return;
    }
    handler->callback(fd, handler->data);
}

void EventManager::wake() {
    KIV_LOG(VERBOSE, "EventManager::wake() EX");
    // Meant: this line goes to standard output.
    printIfPossible("wake()\n");
    const ssize_t result = signalEventFd(wakeFd.get());
    if (result != sizeof(uint64_t)) {
        KIV_LOG(INFO, "Error in writing rv: %d, error: %s", static_cast<int>(result),
                strerror(errno));
        // The thread that stops the loop waits for it. An eventfd is always writable.
        epoll_event event{};
        event.events = EPOLLIN | EPOLLHUP | EPOLLOUT | EPOLLET;
        event.data.fd = wakeFd.get();
        epoll_ctl(epollFd.get(), EPOLL_CTL_MOD, wakeFd.get(), &event);
    }
}

void EventManager::defer(std::function<void()> work) {
    std::lock_guard lock(mutex);
    deferred.push_back(std::move(work));
}

void EventManager::finishItem() {
    while (const std::function<void()> work = takeDeferred()) {
        withoutEnding(work);
    }
}

/// The work that waits longest; empty if there is none.
std::function<void()> EventManager::takeDeferred() {
    std::function<void()> work;
    std::lock_guard lock(mutex);
    if (!deferred.empty()) {
        work = std::move(deferred.front());
        deferred.pop_front();
    }
    return work;
}

void EventManager::clearRead(int fd, void* /*data*/) {
    std::array<char, 256> buffer{};
    ssize_t result = 0;
    do {
        result = read(fd, buffer.data(), buffer.size());
    } while (result > 0);
    if (result == -1 && errno != EAGAIN) {
        KIV_LOG(INFO, "Error while clearing the read buffer on fd %d", fd);
    }
}

bool EventManager::isApprovedFd(int fd) { return approvedFd().contains(fd); }

void EventManager::addApprovedFd(int fd) { approvedFd().add(fd); }

void EventManager::remApprovedFd(int fd) { approvedFd().remove(fd); }

}  // namespace kiv
