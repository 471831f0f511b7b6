#include "EventManager.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <utility>

#include "EventFd.h"
#include "ForkedChild.h"
#include "LogWrapper.h"
#include "NeverDestroyed.h"

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
        ++changes;
    }
    void remove(int fd) {
        std::lock_guard lock(mutex);
        fds.erase(fd);
        ++changes;
    }
    /// As long as it stays the same, so does what contains returns.
    uint64_t changesSoFar() const { return changes.load(); }

private:
    std::mutex mutex;
    std::set<int> fds KIV_GUARDED_BY(mutex);
    std::atomic<uint64_t> changes{0};
};

ApprovedFds& approvedFd() {
    static NeverDestroyed<ApprovedFds> instance;
    return instance.get();
}

template <class Function>
void* address(Function* function) {
    return reinterpret_cast<void*>(function);
}

/// Writes to standard output, but neither waits for somebody to read it nor dies if nobody will.
void printIfPossible(const char* text) {
    pollfd output{STDOUT_FILENO, POLLOUT, 0};
    if (poll(&output, 1, 0) != 1 || output.revents != POLLOUT) {
        return;
    }
    sigset_t brokenPipe;
    sigset_t before;
    sigemptyset(&brokenPipe);
    sigaddset(&brokenPipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &brokenPipe, &before);
    if (write(STDOUT_FILENO, text, strlen(text)) == -1 && errno == EPIPE) {
        const timespec atOnce{};
        sigtimedwait(&brokenPipe, nullptr, &atOnce);
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

/// The names of the flags that nobody handles, each with a trailing blank.
std::string unhandledFlagNames(uint32_t flags) {
    std::string names;
    if (flags & EPOLLOUT) {
        names += "EPOLLOUT ";
    }
    if (flags & EPOLLPRI) {
        names += "EPOLLPRI ";
    }
    if (flags & EPOLLERR) {
        names += "EPOLLERR ";
    }
    if (flags & EPOLLET) {
        names += "EPOLLET ";
    }
    return names;
}

/// What the log tells of an event of the descriptor.
std::string eventLine(int fd, void* callback, void* data) {
    std::array<char, 128> text{};
    snprintf(text.data(), text.size(),
             "file descriptor '%d' is processing events [callback:%p, data:%p]", fd, callback,
             data);
    return text.data();
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
    const auto handler = std::make_shared<HandlerObject>(
        HandlerObject{callback, closeCallback, data, static_cast<uint32_t>(requestedEvents),
                      eventLine(fd, address(callback), data)});
    bool added = false;
    bool watched = false;
    {
        // One step: the loop must not see the descriptor ready before its handler is there.
        std::lock_guard lock(mutex);
        added = handlers.emplace(fd, handler).second;
        if (added) {
            approvedFd().add(fd);
            watched = watch(fd, *handler);
        }
    }
    if (!added) {
        KIV_LOG(INFO, "fd=%d is already in handlers", fd);
        return false;
    }
    if (!watched) {
        // Meant: the handler stays registered and approved all the same.
        KIV_LOG(ERROR, "Cannot add event handler");
        if (roomMissing.load()) {
            // The loop may be waiting without a time-out.
            signalEventFd(wakeFd.get());
        }
    }
    return true;
}

bool EventManager::watch(int fd, HandlerObject& handler) {
    epoll_event event{};
    event.events = handler.requestedEvents;
    event.data.fd = fd;
    const bool watched = epoll_ctl(epollFd.get(), EPOLL_CTL_ADD, fd, &event) != -1;
    handler.lacksRoom = !watched && (errno == ENOMEM || errno == ENOSPC);
    if (handler.lacksRoom) {
        roomMissing.store(true);
    }
    return watched;
}

/// Watches what there was no room for. A mailbox that nobody watches would let its clients wait for
/// ever. False if something is still to be tried.
bool EventManager::watchAgain() {
    if (!roomMissing.load()) {
        return true;
    }
    roomMissing.store(false);
    std::lock_guard lock(mutex);
    for (auto& [fd, handler] : handlers) {
        if (handler->lacksRoom) {
            watch(fd, *handler);
        }
    }
    return !roomMissing.load();
}

void EventManager::removeEventHandler(int fd) {
    if (isForkedChild()) {
        return;
    }
    KIV_LOG(VERBOSE, "EventManager::removeEventHandler(int fd) EX");
    {
        // The loop must not watch it once more.
        std::lock_guard lock(mutex);
        const auto found = handlers.find(fd);
        if (found != handlers.end()) {
            found->second->lacksRoom = false;
        }
    }
    if (epoll_ctl(epollFd.get(), EPOLL_CTL_DEL, fd, nullptr) == -1) {
        KIV_LOG(ERROR, "Cannot remove event handler");
    }
    CloseCallback closeCallback = nullptr;
    void* data = nullptr;
    {
        std::lock_guard lock(mutex);
        const auto found = handlers.find(fd);
        if (found != handlers.end()) {
            data = found->second->data;
            // A close callback that removes its own handler is not called again.
            closeCallback = std::exchange(found->second->closeCallback, nullptr);
        }
    }
    if (closeCallback != nullptr) {
        closeCallback(fd, data);
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
        announce({count - i, i, static_cast<int>(event.events), event.data.fd});
        withoutEnding([this, &event] { processEvent(event); });
        finishItem();
    }
}

void EventManager::announce(const Announced& event) {
    if (event != announced) {
        announced = event;
        snprintf(pendingLine.data(), pendingLine.size(),
                 "there are %d file descriptor(s) with events pending", event.pending);
        snprintf(processingLine.data(), processingLine.size(),
                 "processing event number: %d, handling %d for %d", event.number, event.flags,
                 event.fd);
    }
    KIV_LOG_TEXT(VERBOSE, pendingLine.data());
    KIV_LOG_TEXT(VERBOSE, processingLine.data());
}

void EventManager::processEvent(const epoll_event& event) {
    const int fd = event.data.fd;
    const uint32_t flags = event.events;
    if (flags & EPOLLHUP) {
        // Meant: a hang-up counts alone, even if there is something to read.
        KIV_LOG(INFO, "file descriptor '%d' sent HUP.", fd);
        removeHungUp(fd);
    } else if (flags & EPOLLIN) {
        dispatch(fd);
    } else {
        KIV_LOG(INFO, "Unhandled epoll event: %s [flags 0%o]", unhandledFlagNames(flags).c_str(),
                flags);
    }
}

/// An earlier callback of the same pass may have removed and closed fd; the number may be somebody
/// else's by now, and is then left alone.
void EventManager::removeHungUp(int fd) {
    bool registered = false;
    {
        std::lock_guard lock(mutex);
        registered = handlers.count(fd) > 0;
    }
    if (!registered) {
        KIV_LOG(INFO, "file descriptor '%d' does not have an event handler registered", fd);
        return;
    }
    removeEventHandler(fd);
    close(fd);
}

/// Empties latest if there is nothing to call.
void EventManager::findHandler(int fd) {
    // Handlers come and go with their approval.
    const uint64_t changes = approvedFd().changesSoFar();
    if (latest.handler && latest.fd == fd && latest.changes == changes) {
        return;
    }
    latest = {fd, changes, nullptr};
    if (!isApprovedFd(fd)) {
        KIV_LOG(INFO, "file descriptor %d is not on the approved list, cannot process event", fd);
        return;
    }
    {
        std::lock_guard lock(mutex);
        const auto found = handlers.find(fd);
        if (found != handlers.end()) {
            latest.handler = found->second;
        }
    }
    if (!latest.handler) {
        KIV_LOG(INFO, "file descriptor '%d' does not have an event handler registered", fd);
    }
}

void EventManager::dispatch(int fd) {
    findHandler(fd);
    const HandlerObject* const handler = latest.handler.get();
    if (handler == nullptr) {
        return;
    }
    KIV_LOG_TEXT(VERBOSE, handler->line);
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
    hasDeferred.store(true);
}

void EventManager::finishItem() {
    while (hasDeferred.load()) {
        std::function<void()> work;
        {
            std::lock_guard lock(mutex);
            if (deferred.empty()) {
                hasDeferred.store(false);
                return;
            }
            work = std::move(deferred.front());
            deferred.pop_front();
        }
        withoutEnding(work);
    }
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
