#ifndef EMULATOR_FAULTS_H
#define EMULATOR_FAULTS_H

#include <list>
#include <random>
#include <vector>

#include "Scenario.h"

namespace kiv::emulator {

/// The armed faults. Threads: one at a time. Ownership: plain value. Blocking: never.
class FaultList {
public:
    void add(Fault fault);
    void seed(uint64_t number) { random.seed(number); }

    /// Counts one request of the kind and returns all faults that strike the request as one fault.
    /// Delays add up, and consequences follow one another. For each of the other members the first
    /// fault that sets the member wins.
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

/// Makes an answer of the service inconsistent. The answer has the length of its message.
void tellLie(Lie lie, unsigned messageId, std::vector<std::byte>& answer);

}  // namespace kiv::emulator

#endif
