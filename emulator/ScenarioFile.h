#ifndef EMULATOR_SCENARIOFILE_H
#define EMULATOR_SCENARIOFILE_H

#include <stdexcept>
#include <string>

#include "ModemEmulator.h"

namespace kiv::emulator {

/// What is wrong with a scenario file, and where.
struct KIV_EMULATOR_API ScenarioFileError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Reads a scenario from a JSON file. Throws ScenarioFileError for anything that it doesn't know
/// to the last member. Any thread.
KIV_EMULATOR_API Scenario readScenarioFile(const std::string& path);

}  // namespace kiv::emulator

#endif
