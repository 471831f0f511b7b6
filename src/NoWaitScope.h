#ifndef KIVR_SRC_NOWAITSCOPE_H
#define KIVR_SRC_NOWAITSCOPE_H

namespace kiv {

/// Marks its thread, while it lives, as one that must not wait for a worker thread: a worker thread
/// itself, a thread that destroys an engine, since one of these could wait for another, or a thread
/// of the messaging library during a callback, for whose end a worker thread may be waiting.
class NoWaitScope {
public:
    NoWaitScope() { ++depth; }
    ~NoWaitScope() { --depth; }
    NoWaitScope(const NoWaitScope&) = delete;
    NoWaitScope& operator=(const NoWaitScope&) = delete;

    static bool isActive() { return depth > 0; }

private:
    static inline thread_local int depth = 0;
};

}  // namespace kiv

#endif
