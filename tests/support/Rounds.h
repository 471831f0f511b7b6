#ifndef TESTS_SUPPORT_ROUNDS_H
#define TESTS_SUPPORT_ROUNDS_H

#include <algorithm>
#include <cstdlib>

namespace kiv::test {

/// How often to do what is to go well each time: more often by KIVR_ROUNDS, for long runs.
inline int rounds(int usual) {
    const char* const factor = std::getenv("KIVR_ROUNDS");
    return usual * (factor ? std::max(1, std::atoi(factor)) : 1);
}

}  // namespace kiv::test

#endif
