#ifndef EMULATOR_LIES_H
#define EMULATOR_LIES_H

#include <cstddef>
#include <vector>

#include "Scenario.h"

namespace kiv::emulator {

/// Makes an answer of the service inconsistent. The answer has the length of its message.
void tellLie(Lie lie, unsigned messageId, std::vector<std::byte>& answer);

}  // namespace kiv::emulator

#endif
