#ifndef TOOLS_KIVCTL_COMMANDS_H
#define TOOLS_KIVCTL_COMMANDS_H

#include "CommandLine.h"
#include "Output.h"
#include "Provisioning.h"

namespace kiv::kivctl {

/// The commands; each returns an ExitStatus. They throw ApnFileError, StateUnreadable,
/// ModemUnreachable and OutputError.
int runProvision(const Options& options, Output& output);
int runList(const Options& options, Output& output);

/// The mismatches as a table, or the empty text if there is none.
std::string mismatchText(const std::vector<Mismatch>& mismatches, const Options& options);

/// One operator's tables and steps.
std::string reportText(const ProvisioningReport& report, const Options& options);

}  // namespace kiv::kivctl

#endif
