#include "StandardOutput.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>

namespace kiv {

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

}  // namespace kiv
