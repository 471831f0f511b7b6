#ifndef TOOLS_KIVCTL_COMMAND_H
#define TOOLS_KIVCTL_COMMAND_H

#include <CLI/CLI.hpp>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Failure.h"
#include "Output.h"
#include "Report.h"
#include "Session.h"

namespace kiv::kivctl {

/// A file that an option names, while the options are still read.
struct FileOption {
    const char* option;
    const std::string* path;
    bool isWritten;
};

/// What all commands take.
struct CommonOptions {
    ReportOptions report;
    SessionOptions session;
    std::string logFile;  ///< empty for none
    std::vector<FileOption> files;
};

/// What a command works with. The session is shared by all commands of a process.
class Context {
public:
    Context(CommonOptions& options, Output& output, Printer& printer)
        : options(options), output(output), printer(printer) {}

    /// The session, which is begun, and the modem powered on, when it is first needed.
    Session& session() {
        if (!begun) {
            begun.emplace(options.session);
        }
        begun->open();
        return *begun;
    }

    CommonOptions& options;
    Output& output;
    Printer& printer;

private:
    std::optional<Session> begun;
};

/// Carries a command out; the result is its exit status. Throws Failure.
using Run = std::function<ExitStatus(Context&)>;

/// A command: all that the tool knows of it.
struct Command {
    const char* name;
    const char* summary;
    const char* footer;
    std::vector<const Report*> reports;
    /// Adds the command's own options, which the result keeps. The common ones outlive it.
    Run (*declare)(CLI::App& app, CommonOptions& common);
};

extern const Command kProvisionCommand;
extern const Command kListCommand;
extern const Command kCheckCommand;

/// Adds an option that names a file.
CLI::Option* addFile(CLI::App& app, CommonOptions& common, const char* name, std::string& path,
                     const char* help, bool isWritten);

}  // namespace kiv::kivctl

#endif
