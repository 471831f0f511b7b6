#ifndef TOOLS_KIVCTL_COMMANDLINE_H
#define TOOLS_KIVCTL_COMMANDLINE_H

#include <cstdint>
#include <optional>
#include <string>

#include "Output.h"
#include "Tables.h"

namespace kiv::kivctl {

/// Exit status of the tool. If several apply it is the first of: kCannotWrite, kModemUnreachable,
/// kCannotRead, kFailed, kUnreadableEntries.
enum ExitStatus : int {
    kOk = 0,
    kFailed = 1,             ///< a mismatch, a failed step, no such operator
    kUsage = 2,              ///< the command line makes no sense; nothing was started
    kUnreadableEntries = 3,  ///< entries of the APN file were left out, all else went well
    kCannotRead = 4,         ///< the APN file, the modem's state, the scenario or the journal
    kModemUnreachable = 5,
    kCannotWrite = 6,
};

/// The options, checked.
struct Options {
    Format format = Format::table;
    bool showSecrets = false;
    int bindValue = 0;
    std::string stateFile;  ///< empty for none
    std::string apnFile;
    std::string scenarioFile;      ///< empty for none
    std::optional<uint64_t> seed;  ///< in place of the scenario's; also without one
    std::string journalFile;       ///< empty for none
    bool allOperators = false;
    std::string plmn;  ///< empty for the entries without one
};

/// What a command line asks for.
struct CommandLine {
    enum class Command { Provision, List };

    Command command = Command::List;
    Options options;
    std::string logFile;  ///< empty for none
};

/// Reads a command line. None, and the exit status, where there is nothing left to do: what is to
/// be told of it, such as help or what is wrong, has been.
std::optional<CommandLine> parseCommandLine(int argc, const char* const* argv, Output& output,
                                            int& status);

/// kivctl from its command line to its exit status. Throws nothing.
int runKivctl(int argc, const char* const* argv, Output& output);

}  // namespace kiv::kivctl

#endif
