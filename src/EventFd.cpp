#include "EventFd.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>

#include "LogWrapper.h"

namespace kiv {

void OwnedFd::reset(int other) {
    if (fd != -1) {
        close(fd);
    }
    fd = other;
}

int createEventFd() {
    const int fd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (fd == -1) {
        KIV_LOG(ERROR, "Cannot create eventfd instance");
        abort();
    }
    return fd;
}

ssize_t signalEventFd(int fd) {
    const uint64_t one = 1;
    return write(fd, &one, sizeof(one));
}

void drainEventFd(int fd) {
    uint64_t count = 0;
    ssize_t result = 0;
    do {
        result = read(fd, &count, sizeof(count));
    } while (result > 0);
    if (result == -1 && errno != EAGAIN) {
        KIV_LOG(ERROR, "Error while clearing the read buffer on fd %d", fd);
    }
}

}  // namespace kiv
