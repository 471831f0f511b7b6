#include "ForkedChild.h"

#include <pthread.h>

namespace kiv {

std::atomic<bool> forkedChild{false};

void endLibraryInForkedChildren() {
    static const int registered = pthread_atfork(nullptr, nullptr, [] { forkedChild.store(true); });
    static_cast<void>(registered);
}

}  // namespace kiv
