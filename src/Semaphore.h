#ifndef KIVR_SRC_SEMAPHORE_H
#define KIVR_SRC_SEMAPHORE_H

#include <semaphore.h>

namespace kiv {

/// Counts posts, for each of which one wait returns. Unlike a condition variable it leaves whoever
/// wakes no mutex to take, and unlike the standard library's it goes to sleep without spinning
/// first, which on a phone costs power and keeps the thread that is to post from running.
///
/// Threads: any. Ownership: may be destroyed as soon as wait has returned, also while that post is
/// still under way, since the C libraries do not touch the semaphore behind the count. Blocking:
/// wait only. Re-entrancy: none to mind.
class Semaphore {
public:
    Semaphore() { sem_init(&semaphore, 0, 0); }
    ~Semaphore() { sem_destroy(&semaphore); }
    Semaphore(const Semaphore&) = delete;
    Semaphore& operator=(const Semaphore&) = delete;

    void post() { sem_post(&semaphore); }

    void wait() {
        while (sem_wait(&semaphore) != 0) {
            // Interrupted by a signal.
        }
    }

private:
    sem_t semaphore;
};

}  // namespace kiv

#endif
