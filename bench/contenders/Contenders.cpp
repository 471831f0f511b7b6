#include "Contender.h"

namespace kiv::bench {

std::vector<NamedContender> contenders() {
    return {
        {"floor", makeFloor},
#ifdef KIVR_BENCH_LOOPER
        {"looper", makeLooper},
#endif
#ifdef KIVR_BENCH_LIBUV
        {"libuv", makeLibuv},
#endif
#ifdef KIVR_BENCH_ASIO
        {"asio", makeAsio},
#endif
    };
}

}  // namespace kiv::bench
