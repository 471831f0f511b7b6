#include "ForkedChild.h"

#include <pthread.h>

namespace kiv {

std::atomic<bool> forkedChild{false};

void endLibraryInForkedChildren() {
    [[maybe_unused]] static const int registered =
        pthread_atfork(nullptr, nullptr, [] { forkedChild.store(true); });
}

}  // namespace kiv
