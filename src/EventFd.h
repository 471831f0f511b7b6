#ifndef KIVR_SRC_EVENTFD_H
#define KIVR_SRC_EVENTFD_H

#include <sys/types.h>

namespace kiv {

/// A new eventfd, non-blocking and close-on-exec. Without one the library can't work, so that a
/// failure is logged and aborts the process.
int createEventFd();

/// Makes the eventfd readable. Any thread. Returns what write returned: 8 if all is well.
ssize_t signalEventFd(int fd);

/// Reads the eventfd empty. An error is logged and otherwise ignored.
void drainEventFd(int fd);

}  // namespace kiv

#endif
