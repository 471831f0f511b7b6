#ifndef KIVR_SRC_FORKEDCHILD_H
#define KIVR_SRC_FORKEDCHILD_H

#include <atomic>

namespace kiv {

/// From now on a fork makes a child in which the library is at an end: the threads are not there,
/// and any lock may have been held by one of them.
void endLibraryInForkedChildren();

extern std::atomic<bool> forkedChild;

/// Whether this process is such a child. It must then touch no lock, and log nothing.
inline bool isForkedChild() { return forkedChild.load(std::memory_order_relaxed); }

}  // namespace kiv

#endif
