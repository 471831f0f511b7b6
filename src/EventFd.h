#ifndef KIVR_SRC_EVENTFD_H
#define KIVR_SRC_EVENTFD_H

#include <sys/types.h>

namespace kiv {

/// A descriptor that is closed with it, also if the constructor of what it is a member of throws.
/// Its owner uses it on whatever threads the descriptor itself allows.
class OwnedFd {
public:
    OwnedFd() = default;
    explicit OwnedFd(int fd) : fd(fd) {}
    ~OwnedFd() { reset(); }
    OwnedFd(const OwnedFd&) = delete;
    OwnedFd& operator=(const OwnedFd&) = delete;

    int get() const { return fd; }
    /// Takes another one in its place, which is closed; none by default.
    void reset(int other = -1);

private:
    int fd = -1;
};

/// A new eventfd, non-blocking and close-on-exec. Without one the library can't work, so that a
/// failure is logged and aborts the process.
int createEventFd();

/// Makes the eventfd readable. Any thread. Returns what write returned: 8 if all is well.
ssize_t signalEventFd(int fd);

/// Reads the eventfd empty. An error is logged and otherwise ignored.
void drainEventFd(int fd);

}  // namespace kiv

#endif
