#include "ForkedChild.h"

#include <pthread.h>
#include <unistd.h>

#include "NoWaitScope.h"

namespace kiv {

std::atomic<bool> forkedChild{false};

void endLibraryInForkedChildren() {
    static const int registered = pthread_atfork(nullptr, nullptr, [] { forkedChild.store(true); });
    static_cast<void>(registered);
}

void endForkedWorker() {
    if (NoWaitScope::isActive()) {
        _exit(0);  // static objects and unwritten output are its parent's
    }
}

}  // namespace kiv
