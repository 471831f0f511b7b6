// Tells whether the compiler checks the annotations: it must accept this with LOCKED defined, and
// reject it with UNLOCKED.

#include <mutex>

#include "ThreadSafety.h"

namespace {

class Guarded {
public:
    int next() KIV_EXCLUDES(mutex) {
#ifdef LOCKED
        kiv::WaitLock lock(mutex);
#endif
        return ++value;
    }

private:
    std::mutex mutex;
    int value KIV_GUARDED_BY(mutex) = 0;
};

}  // namespace

int main() { return Guarded().next() - 1; }
