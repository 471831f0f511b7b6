#ifndef EMULATOR_FAULTLIST_H
#define EMULATOR_FAULTLIST_H

#include <list>

#include "ModemEmulator.h"

namespace kiv::emulator {

/// The armed faults. Threads: one at a time. Ownership: plain value. Blocking: never.
class FaultList {
public:
    void add(Fault fault);
    void clear() { armed.clear(); }

    /// Counts one request of the kind and returns what is to be done to it: all faults that strike
    /// it in one, delays added up, rewrites one after the other, else the first that says anything.
    Fault strike(unsigned messageId);

private:
    std::list<Fault> armed;  ///< nth counts down
};

}  // namespace kiv::emulator

#endif
