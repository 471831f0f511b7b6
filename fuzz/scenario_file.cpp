// Any text as a scenario file.

#include "FuzzInput.h"
#include "ScenarioFile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    try {
        kiv::emulator::parseScenario("file", kiv::fuzz::FuzzInput(data, size).takeText(size));
    } catch (const kiv::emulator::ScenarioFileError&) {
        // Refused, as most are.
    }
    return 0;
}
