#include "CommandLine.h"

#include <algorithm>
#include <sstream>

#include "Files.h"
#include "Text.h"

namespace kiv::kivctl {
namespace {

constexpr char kFooter[] =
    "Exit status:\n"
    "  0  all went well\n"
    "  1  a mismatch, a failed step, nothing that serves the SIM, or a warning of check\n"
    "  2  wrong usage\n"
    "  3  entries of the APN file can't be read and were left out; the rest went well\n"
    "  4  the APN file, the modem's state or the scenario can't be read, or is in use\n"
    "  5  the modem can't be reached\n"
    "  6  output could not be written\n"
    "  7  no fault of the scenario struck\n"
    "  130, 143  ended by SIGINT, SIGTERM\n";

const Command* const kCommands[] = {&kProvisionCommand, &kCheckCommand, &kListCommand};

std::string isNamed(const std::string& file) { return file.empty() ? "no name" : ""; }

void addCommonOptions(CLI::App& app, CommonOptions& common) {
    app.add_option("--bind", common.session.bindValue, "Subscription to bind to; 0 if not given")
        ->check(CLI::NonNegativeNumber)
        ->type_name("N");
    app.add_option("--format", common.report.format,
                   "table for people (if not given), tsv or json for programs")
        ->transform(CLI::Transformer(std::map<std::string, Format>{
            {"table", Format::table}, {"tsv", Format::tsv}, {"json", Format::json}}))
        ->type_name("FORMAT");
    app.add_option("--fields", common.report.fields, "Show these fields only, in this order")
        ->delimiter(',')
        ->type_name("A,B,C");
    app.add_flag("--show-secrets", common.report.showSecrets, "Show passwords");
    addFile(app, common, "--log", common.logFile, "Write the library's log, passwords included",
            true);
}

std::vector<std::string> namesOfCommands() {
    std::vector<std::string> names;
    for (const Command* command : kCommands) {
        names.emplace_back(command->name);
    }
    return names;
}

[[noreturn]] void refuseUnknown(const char* kind, const std::string& word,
                                const std::vector<std::string>& known, const std::string& help) {
    const std::string near = nearest(word, known);
    throw Failure(
        kUsage, std::string("no ") + kind + " " + quote(word) +
                    (near.empty() ? "; see " + help + " --help" : "; did you mean " + near + "?"));
}

/// CLI11 would miss a command first, and name what stands in its place last.
void requireCommand(int argc, const char* const* argv) {
    const std::vector<std::string> names = namesOfCommands();
    if (argc < 2) {
        throw Failure(kUsage, "no command given; see kivctl --help");
    }
    const std::string first = argv[1];
    const bool isOption = first == "--help" || first == "-h" || first == "--version";
    if (!isOption && std::find(names.begin(), names.end(), first) == names.end()) {
        refuseUnknown("command", first, names, "kivctl");
    }
}

/// What CLI11 found wrong, in a line.
[[noreturn]] void refuse(const CLI::App& app, const Command& command,
                         const CLI::ParseError& error) {
    const std::string help = std::string("kivctl ") + command.name;
    for (const std::string& word : app.remaining(true)) {
        if (word.size() > 1 && word[0] == '-') {
            std::vector<std::string> known;
            for (const CLI::Option* option : app.get_subcommand(command.name)->get_options()) {
                known.push_back(option->get_name());
            }
            refuseUnknown("option", word.substr(0, word.find('=')), known, help);
        }
    }
    constexpr size_t kLongest = 120;
    std::string what = error.what();
    std::replace(what.begin(), what.end(), '\n', ' ');
    what = escape(what).substr(0, kLongest);
    throw Failure(kUsage, what + "; see " + help + " --help");
}

void requireDistinctFiles(const CommonOptions& common) {
    std::vector<NamedFile> files;
    for (const FileOption& one : common.files) {
        files.push_back({one.option, *one.path, one.isWritten});
    }
    requireDistinct(files);
}

ExitStatus execute(Invocation& invocation, Output& output) {
    CommonOptions& common = *invocation.options;
    common.session.showSecrets = common.report.showSecrets;
    Printer printer(output, common.report);
    printer.requireFields(invocation.command->reports);
    requireDistinctFiles(common);
    logToFile(common.logFile);
    Context context(common, output, printer);
    const ExitStatus status = invocation.run(context);
    printer.finish();
    output.finish();
    finishLog();
    return status;
}

}  // namespace

CLI::Option* addFile(CLI::App& app, CommonOptions& common, const char* name, std::string& path,
                     const char* help, bool isWritten) {
    common.files.push_back({name, &path, isWritten});
    return app.add_option(name, path, help)->check(CLI::Validator(isNamed, ""))->type_name("FILE");
}

std::optional<Invocation> parseCommandLine(int argc, const char* const* argv, Output& output) {
    requireCommand(argc, argv);
    CLI::App app("Drives libkivr against the modem emulator.", "kivctl");
    app.set_version_flag("--version", "kivctl " KIVCTL_VERSION);
    app.footer(kFooter);
    app.require_subcommand(1);
    // Each command has options of its own, of which only one is used.
    std::vector<Invocation> invocations;
    for (const Command* command : kCommands) {
        CLI::App& sub = *app.add_subcommand(command->name, command->summary);
        sub.footer(std::string(command->footer) + kFooter);
        auto& one = invocations.emplace_back(
            Invocation{command, std::make_unique<CommonOptions>(), nullptr});
        one.run = command->declare(sub, *one.options);
        addCommonOptions(sub, *one.options);
    }
    const auto chosen = std::find_if(
        invocations.begin(), invocations.end(),
        [&](const Invocation& one) { return one.command->name == std::string(argv[1]); });
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& parsed) {
        std::ostringstream results;
        std::ostringstream messages;
        if (app.exit(parsed, results, messages) != 0) {
            refuse(app, chosen == invocations.end() ? *kCommands[0] : *chosen->command, parsed);
        }
        output.print(results.str());
        output.finish();
        return std::nullopt;
    }
    return std::move(*chosen);
}

int runKivctl(int argc, const char* const* argv, Output& output) {
    try {
        auto invocation = parseCommandLine(argc, argv, output);
        return invocation ? execute(*invocation, output) : kOk;
    } catch (const Failure& failure) {
        output.complain(failure.what());
        return failure.status;
    } catch (const std::exception& error) {
        output.complain(error.what());
        return kFailed;
    }
}

}  // namespace kiv::kivctl
