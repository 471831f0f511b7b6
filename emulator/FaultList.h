#ifndef EMULATOR_FAULTLIST_H
#define EMULATOR_FAULTLIST_H

#include <list>
#include <random>

#include "Scenario.h"

namespace kiv::emulator {

/// The armed faults. Threads: one at a time. Ownership: plain value. Blocking: never.
class FaultList {
public:
    void add(Fault fault);
    void seed(uint64_t number) { random.seed(number); }

    /// Counts one request of the kind and returns what is to be done to it: all faults that strike
    /// it in one, delays added up, rewrites and consequences one after the other, else the first
    /// that says anything.
    Fault strike(unsigned messageId);

private:
    struct Armed {
        Fault fault;
        unsigned seen = 0;
    };
    bool strikes(Armed& armed);

    std::list<Armed> armed;
    std::mt19937_64 random;
};

}  // namespace kiv::emulator

#endif
