#ifndef EMULATOR_CLOCK_H
#define EMULATOR_CLOCK_H

#include <algorithm>
#include <chrono>

namespace kiv::emulator {

/// The emulator's only notion of time: everything that waits or is due asks here.
using Clock = std::chrono::steady_clock;
using TimePoint = Clock::time_point;

/// The moment that lies so far ahead. Negative spans count as none, and absurd ones as a year, so
/// that no sum overflows.
inline TimePoint timeAfter(std::chrono::milliseconds span) {
    constexpr std::chrono::milliseconds kLongest = std::chrono::hours(24 * 365);
    return Clock::now() + std::clamp(span, std::chrono::milliseconds(0), kLongest);
}

}  // namespace kiv::emulator

#endif
