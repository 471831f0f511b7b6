#include "ForkedChild.h"

#include <pthread.h>

#include <atomic>

namespace kiv {

namespace {

std::atomic<bool> forkedChild{false};

}  // namespace

void endLibraryInForkedChildren() {
    static const int registered = pthread_atfork(nullptr, nullptr, [] { forkedChild.store(true); });
    static_cast<void>(registered);
}

bool isForkedChild() { return forkedChild.load(std::memory_order_relaxed); }

}  // namespace kiv
