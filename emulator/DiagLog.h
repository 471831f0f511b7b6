#ifndef EMULATOR_DIAGLOG_H
#define EMULATOR_DIAGLOG_H

#include <vector>

#include "ModemEmulator.h"

namespace kiv::emulator {

/// What the C interface of the diagnostic log collected. Any thread; neither blocks.
std::vector<ModemEmulator::DiagLine> takeDiagnosticLines();
int countDiagnosticUsers();

}  // namespace kiv::emulator

#endif
