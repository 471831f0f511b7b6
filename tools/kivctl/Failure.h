#ifndef TOOLS_KIVCTL_FAILURE_H
#define TOOLS_KIVCTL_FAILURE_H

#include <stdexcept>
#include <string>

namespace kiv::kivctl {

/// Exit status of the tool. A run that can't go on ends with the status of its Failure; of those of
/// a run that came to its end, the first of kFailed, kUnreadableEntries, kNoFaultStruck counts.
enum ExitStatus : int {
    kOk = 0,
    kFailed = 1,             ///< a mismatch, a failed step, nothing serves the SIM, a flaw found
    kUsage = 2,              ///< the command line makes no sense; nothing was started
    kUnreadableEntries = 3,  ///< entries of the APN file were left out, all else went well
    kCannotRead = 4,         ///< the APN file, the modem's state or the scenario
    kModemUnreachable = 5,
    kCannotWrite = 6,
    kNoFaultStruck = 7,  ///< no fault of the scenario met a request
    kInterrupted = 130,  ///< SIGINT
    kTerminated = 143,   ///< SIGTERM
};

/// Why a run can't go on: one sentence for the user, and the status to exit with.
struct Failure : std::runtime_error {
    Failure(ExitStatus status, const std::string& text)
        : std::runtime_error(text), status(status) {}

    const ExitStatus status;
};

}  // namespace kiv::kivctl

#endif
