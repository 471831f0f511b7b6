#ifndef TOOLS_KIVCTL_COMMANDLINE_H
#define TOOLS_KIVCTL_COMMANDLINE_H

#include <memory>
#include <optional>

#include "Command.h"

namespace kiv::kivctl {

/// A command with its options, read and checked.
struct Invocation {
    const Command* command = nullptr;
    std::unique_ptr<CommonOptions> options;
    Run run;
};

/// Reads a command line. None if it asks for nothing but help, which has been printed. Throws
/// Failure.
std::optional<Invocation> parseCommandLine(int argc, const char* const* argv, Output& output);

/// kivctl from its command line to its exit status. Throws nothing.
int runKivctl(int argc, const char* const* argv, Output& output);

}  // namespace kiv::kivctl

#endif
