#ifndef KIVR_SRC_THREADSAFETY_H
#define KIVR_SRC_THREADSAFETY_H

#include <condition_variable>
#include <mutex>

// Clang's thread-safety annotations. They need a standard library whose std::mutex is annotated:
// libc++ with _LIBCPP_ENABLE_THREAD_SAFETY_ANNOTATIONS; elsewhere they say nothing.
#if defined(__clang__) && defined(_LIBCPP_VERSION) && \
    defined(_LIBCPP_ENABLE_THREAD_SAFETY_ANNOTATIONS)
#define KIV_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define KIV_THREAD_ATTRIBUTE(x)
#endif

#define KIV_GUARDED_BY(mutex) KIV_THREAD_ATTRIBUTE(guarded_by(mutex))
#define KIV_REQUIRES(mutex) KIV_THREAD_ATTRIBUTE(requires_capability(mutex))
#define KIV_EXCLUDES(mutex) KIV_THREAD_ATTRIBUTE(locks_excluded(mutex))
#define KIV_ACQUIRE(mutex) KIV_THREAD_ATTRIBUTE(acquire_capability(mutex))
#define KIV_RELEASE(...) KIV_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define KIV_SCOPED_LOCK KIV_THREAD_ATTRIBUTE(scoped_lockable)

namespace kiv {

/// A lock that can wait on a condition variable. std::unique_lock would do, were it annotated.
/// To the analysis the mutex is held throughout a wait, so a loop around wait tests the condition.
class KIV_SCOPED_LOCK WaitLock {
public:
    explicit WaitLock(std::mutex& mutex) KIV_ACQUIRE(mutex) : lock(mutex) {}
    ~WaitLock() KIV_RELEASE() = default;
    WaitLock(const WaitLock&) = delete;
    WaitLock& operator=(const WaitLock&) = delete;

    void wait(std::condition_variable& condition) { condition.wait(lock); }

private:
    std::unique_lock<std::mutex> lock;
};

}  // namespace kiv

#endif
