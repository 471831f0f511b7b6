#include "CommandLine.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <sstream>

#include "ApnFile.h"
#include "Commands.h"
#include "ScenarioFile.h"
#include "Session.h"

namespace kiv::kivctl {
namespace {

constexpr char kFooter[] =
    "Exit status:\n"
    "  0  all went well\n"
    "  1  a mismatch, a failed step, or an operator that is not in the file\n"
    "  2  wrong usage\n"
    "  3  entries of the APN file could not be read and were left out; the rest went well\n"
    "  4  the APN file, the modem's state or the scenario can't be read\n"
    "  5  the modem can't be reached\n"
    "  6  output could not be written\n";

constexpr char kProvisionFooter[] =
    "Steps: the LTE attach profile (first entry of type ia, else default), the default data call\n"
    "(first of type default), the emergency profile (first of type emergency, else none), and the\n"
    "types of all entries. Each is checked against what the modem and the library then hold.\n";

/// The command line as it is written.
struct RawOptions {
    CommandLine read;
    Options& options = read.options;
    std::string format;
    std::string plmn;
};

std::string checkPlmn(const std::string& value) {
    const bool isDigits =
        std::all_of(value.begin(), value.end(), [](char c) { return c >= '0' && c <= '9'; });
    if (value == "none" || (isDigits && (value.size() == 5 || value.size() == 6))) {
        return {};
    }
    return "not 5 or 6 digits (MCC and MNC), nor 'none': " + escape(value);
}

std::string isNamed(const std::string& file) { return file.empty() ? "no name" : ""; }

void addCommonOptions(CLI::App& command, RawOptions& raw) {
    command.add_option("--bind", raw.options.bindValue, "Subscription to bind to; 0 if not given")
        ->check(CLI::NonNegativeNumber);
    command.add_option("--format", raw.format, "For people (table, if not given) or for programs")
        ->check(CLI::IsMember({"table", "tsv"}))
        ->type_name("FORMAT");
    command.add_flag("--show-secrets", raw.options.showSecrets, "Show passwords");
    command
        .add_option("--log", raw.read.logFile, "Write the library's log, passwords included, here")
        ->type_name("FILE");
    command
        .add_option("--state", raw.options.stateFile,
                    "Take the modem's profiles, passwords included, from here and leave them here; "
                    "without such a file the modem is fresh")
        ->check(isNamed)
        ->type_name("FILE");
}

void addProvisionOptions(CLI::App& command, RawOptions& raw) {
    command.add_option("--apns", raw.options.apnFile, "APNs in the format of apns-conf.xml")
        ->type_name("FILE")
        ->required();
    command
        .add_option("--scenario", raw.options.scenarioFile,
                    "What the modem is to do wrong; it then runs on a virtual clock")
        ->check(isNamed)
        ->type_name("FILE");
    command.add_option("--seed", raw.options.seed,
                       "Seed of what is random in the scenario, in place of its own");
    command
        .add_option("--journal", raw.options.journalFile,
                    "Write every message and event here, one JSON object a line")
        ->check(isNamed)
        ->type_name("FILE");
    // No option group, which takes an empty argument for its name and then never ends.
    CLI::Option* plmn =
        command
            .add_option("--plmn", raw.plmn, "The operator to serve; none: entries without a PLMN")
            ->type_name("MCCMNC")
            ->check(CLI::Validator(checkPlmn, ""));
    command
        .add_flag("--all", raw.options.allOperators,
                  "Serve every operator in the file, each on a fresh modem")
        ->excludes(command.get_option("--state"))
        ->excludes(plmn);
}

int execute(const CommandLine& line, Output& output) {
    if (line.logFile.empty()) {
        discardLog();
    } else {
        logToFile(line.logFile);
    }
    const int status = line.command == CommandLine::Command::Provision
                           ? runProvision(line.options, output)
                           : runList(line.options, output);
    output.finish();
    finishLog();
    return status;
}

}  // namespace

std::optional<CommandLine> parseCommandLine(int argc, const char* const* argv, Output& output,
                                            int& status) {
    RawOptions raw;
    CLI::App app("Drives libkivr against the modem emulator.", "kivctl");
    app.set_version_flag("--version", "kivctl " KIVCTL_VERSION);
    app.footer(kFooter);
    app.require_subcommand(1);
    CLI::App* provision = app.add_subcommand(
        "provision", "Serve an operator's APNs as at SIM load, and check what the modem holds");
    provision->footer(std::string(kProvisionFooter) + "\n" + kFooter);
    CLI::App* list =
        app.add_subcommand("list", "Show the modem's profiles as the library reads them");
    for (CLI::App* command : {provision, list}) {
        addCommonOptions(*command, raw);
    }
    addProvisionOptions(*provision, raw);
    try {
        app.parse(argc, argv);
        if (provision->parsed() && provision->count("--plmn") + provision->count("--all") == 0) {
            throw CLI::RequiredError("--plmn or --all");
        }
    } catch (const CLI::ParseError& parsed) {
        std::ostringstream results;
        std::ostringstream messages;
        status = app.exit(parsed, results, messages) == 0 ? kOk : kUsage;
        output.print(results.str());
        output.finish();
        if (status != kOk) {
            std::string text = messages.str();
            output.complain(text.erase(text.find_last_not_of('\n') + 1));
        }
        return std::nullopt;
    }
    raw.read.command =
        provision->parsed() ? CommandLine::Command::Provision : CommandLine::Command::List;
    raw.options.format = raw.format == "tsv" ? Format::tsv : Format::table;
    raw.options.plmn = raw.plmn == "none" ? "" : raw.plmn;
    return std::move(raw.read);
}

int runKivctl(int argc, const char* const* argv, Output& output) {
    try {
        int status = kOk;
        const auto line = parseCommandLine(argc, argv, output, status);
        return line ? execute(*line, output) : status;
    } catch (const OutputError& error) {
        output.complain(error.what());
        return kCannotWrite;
    } catch (const ModemUnreachable& error) {
        output.complain(error.what());
        return kModemUnreachable;
    } catch (const emulator::ScenarioFileError& error) {
        output.complain(error.what());
        return kCannotRead;
    } catch (const ApnFileError& error) {
        output.complain(error.what());
        return kCannotRead;
    } catch (const StateUnreadable& error) {
        output.complain(error.what());
        return kCannotRead;
    } catch (const std::exception& error) {
        output.complain(error.what());
        return kFailed;
    }
}

}  // namespace kiv::kivctl
