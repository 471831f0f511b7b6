#ifndef EMULATOR_SCENARIOFILE_H
#define EMULATOR_SCENARIOFILE_H

#include <stdexcept>
#include <string>
#include <string_view>

#include "ModemEmulator.h"

namespace kiv::emulator {

/// What is wrong with a scenario file, and where.
struct KIV_EMULATOR_API ScenarioFileError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Reads a scenario from a JSON text, which may be hostile. Throws ScenarioFileError for anything
/// that it doesn't know to the last member; the path is only used in messages. Any thread.
KIV_EMULATOR_API Scenario parseScenario(const std::string& path, std::string_view text);

/// The same for a file.
KIV_EMULATOR_API Scenario readScenarioFile(const std::string& path);

}  // namespace kiv::emulator

#endif
