#include <memory>
#include <set>

#include "ApnFile.h"
#include "Command.h"
#include "Provisioning.h"
#include "ScenarioFile.h"
#include "SettingList.h"
#include "Settings.h"
#include "Sim.h"
#include "Text.h"

namespace kiv::kivctl {
namespace {

struct Options {
    std::string apnFile;
    std::string sim;
    std::string plmn;
    bool allOperators = false;
    bool explained = false;
    std::string scenarioFile;
    std::optional<uint64_t> seed;
};

Report modemReport(const char* name, const char* title) {
    Report report{name, title, {{"profile"}, {"persistent"}}};
    for (const emulator::ShownSetting& setting : emulator::listSettings(nullptr)) {
        // The names are constants with a zero behind them.
        report.fields.push_back({setting.name.data(), setting.isSecret});
    }
    return report;
}

const Report kBefore = modemReport("before", "Modem before");
const Report kAfter = modemReport("after", "Modem after");
const Report kChoice = {
    "choice", "Choice", {{"operator"}, {"step"}, {"line"}, {"carrier"}, {"apn"}, {"verdict"}}};
const Report kStep = {
    "step",
    "Steps",
    {{"operator"}, {"carrier"}, {"step"}, {"result"}, {"profile"}, {"apn"}, {"line"}, {"reason"}}};
const Report kMismatch = {
    "mismatch",
    "Mismatches",
    {{"operator"}, {"step"}, {"check"}, {"profile"}, {"setting"}, {"expected"}, {"found"}}};
const Report kFault = {"fault", "Faults", {{"fault"}, {"struck"}}};
const Report kTotal = {
    "total", "", {{"operators"}, {"apns"}, {"profiles_made"}, {"mismatches"}}, true};

Json orNull(const std::string& text) { return text.empty() ? Json() : Json(text); }

Json apnOf(const ApnEntry& entry) {
    return entry.params.hasApnName() ? Json(entry.params.getApnName()) : Json();
}

/// One run of the command.
class Provision {
public:
    Provision(const Options& options, Context& context)
        : options(options), context(context), printer(context.printer) {}

    ExitStatus run() {
        const ApnFile file = readApnFile(options.apnFile, [&](size_t done, size_t total) {
            context.output.showProgress("reading", done, total);
        });
        const std::vector<Sim> sims = chooseSims(file);
        context.options.session.scenario = readScenario();
        Session& session = context.session();
        for (const Sim& sim : sims) {
            serve(file, sim, session);
            context.output.showProgress("operators", operators, sims.size());
        }
        session.finish();
        printer.add(kTotal, {operators, entries, created, mismatches},
                    mismatches > 0 ? Tone::bad : Tone::good);
        const bool isIdle = reportFaults(session);
        return mismatches > 0 ? kFailed
               : isLeftOut    ? kUnreadableEntries
               : isIdle       ? kNoFaultStruck
                              : kOk;
    }

private:
    std::vector<Sim> chooseSims(const ApnFile& file) {
        if (options.allOperators) {
            return simsOf(file);
        }
        const Sim sim = parseSim(options.sim.empty() ? options.plmn : options.sim);
        complainOf(candidatesFor(file, sim));
        requireServed(file, sim);
        return {sim};
    }

    void requireServed(const ApnFile& file, const Sim& sim) {
        for (const Candidate& one : candidatesFor(file, sim)) {
            if (one.verdict == Verdict::Serves) {
                return;
            }
        }
        constexpr size_t kMost = 3;
        const std::vector<std::string> others = alternativesTo(file, sim);
        std::string text = file.path + ": no entry serves SIM " + escape(sim.text());
        for (size_t i = 0; i < std::min(others.size(), kMost); ++i) {
            text += (i == 0 ? "; try --sim " : " or ") + quote(others[i]);
        }
        if (others.size() > kMost) {
            text += " or one of " + std::to_string(others.size() - kMost) + " more";
        }
        throw Failure(kFailed, text);
    }

    /// The scenario that was asked for; a seed alone is one in which nothing happens.
    std::optional<emulator::Scenario> readScenario() const {
        if (options.scenarioFile.empty() && !options.seed) {
            return std::nullopt;
        }
        emulator::Scenario scenario;
        try {
            if (!options.scenarioFile.empty()) {
                scenario = emulator::readScenarioFile(options.scenarioFile);
            }
        } catch (const emulator::ScenarioFileError& error) {
            throw Failure(kCannotRead, withoutContent(error.what()));
        }
        scenario.seed = options.seed.value_or(scenario.seed);
        context.output.complain("scenario: seed " + std::to_string(scenario.seed));
        return scenario;
    }

    /// Of each flaw that costs something, once.
    void complainOf(const std::vector<Candidate>& candidates) {
        for (const Candidate& one : candidates) {
            isLeftOut = isLeftOut || one.verdict == Verdict::LeftOut;
            if (one.verdict == Verdict::OtherMvno || !told.insert(one.entry).second) {
                continue;
            }
            for (const Flaw& flaw : one.entry->flaws) {
                if (flaw.severity != Severity::note) {
                    context.output.complain(options.apnFile + ":" +
                                            std::to_string(one.entry->line) + ": " + flaw.what +
                                            "; " + flaw.remedy);
                }
            }
        }
    }

    void serve(const ApnFile& file, const Sim& sim, Session& session) {
        const std::vector<Candidate> candidates = candidatesFor(file, sim);
        complainOf(candidates);
        if (operators++ > 0) {
            session.renew();
        }
        session.mark("operator " + sim.text());
        Provisioner provisioner(session, sim, candidates, context.options.session.bindValue, cache,
                                context.output);
        const ProvisioningReport report = provisioner.run(options.explained);
        session.save();
        for (const Candidate& one : candidates) {
            entries += one.verdict == Verdict::Serves ? 1 : 0;
        }
        created += report.createdProfiles;
        mismatches += report.mismatches.size();
        show(sim, report);
    }

    void show(const Sim& sim, const ProvisioningReport& report) {
        const std::string name = sim.text();
        if (!options.allOperators) {
            showModem(kBefore, report.before);
        }
        for (const Explanation& one : report.explanations) {
            printer.add(kChoice, {name, one.step, one.entry->line, orNull(one.entry->carrier),
                                  apnOf(*one.entry), one.verdict});
        }
        for (const StepReport& one : report.steps) {
            const ApnEntry* const entry = one.entry;
            printer.add(kStep,
                        {name, entry ? orNull(entry->carrier) : Json(), one.step, one.result,
                         orNull(one.profile), entry ? apnOf(*entry) : Json(),
                         entry ? Json(entry->line) : Json(), one.reason},
                        one.isGood ? Tone::plain : Tone::bad);
        }
        if (!options.allOperators) {
            showModem(kAfter, report.after);
        }
        for (const Mismatch& one : report.mismatches) {
            const bool isHidden = one.isSecret && !context.options.report.showSecrets;
            const auto value = [&](const Json& json) {
                return isHidden && !json.is_null() ? Json("***") : json;
            };
            printer.add(kMismatch,
                        {name, one.step, one.check, orNull(one.profile), one.setting,
                         value(one.expected), value(one.found)},
                        Tone::bad);
        }
    }

    void showModem(const Report& report, const ModemTable& table) {
        printer.declare(report);
        for (const emulator::Profile& profile : table) {
            const bool is3gpp2 = profile.type == WDS_PROFILE_TYPE_3GPP2_V01;
            std::vector<Json> values = {
                profileText(is3gpp2 ? TechType::Tech3gpp2 : TechType::Tech3gpp, profile.index),
                profile.persistent};
            for (const emulator::ShownSetting& setting : emulator::listSettings(&profile)) {
                values.push_back(setting.text ? Json(*setting.text) : Json());
            }
            printer.add(report, values);
        }
    }

    /// True if the scenario has faults, and none of them struck.
    bool reportFaults(const Session& session) {
        const std::vector<unsigned> strikes = session.strikes();
        bool isIdle = !strikes.empty();
        for (size_t i = 0; i < strikes.size(); ++i) {
            isIdle = isIdle && strikes[i] == 0;
            printer.add(kFault, {"faults[" + std::to_string(i) + "]", strikes[i]},
                        strikes[i] == 0 ? Tone::warning : Tone::plain);
        }
        if (isIdle) {
            context.output.complain(options.scenarioFile +
                                    ": none of its faults struck; see which requests it names");
        }
        return isIdle;
    }

    const Options& options;
    Context& context;
    Printer& printer;
    CacheReader cache;
    std::set<const ApnEntry*> told;
    bool isLeftOut = false;
    size_t operators = 0;
    size_t entries = 0;
    size_t created = 0;
    size_t mismatches = 0;
};

void addModemOptions(CLI::App& app, CommonOptions& common, Options& options) {
    common.session.replacesState = true;
    addFile(app, common, "--state", common.session.stateFile,
            "Take the modem's profiles, passwords included, from here and leave them here", true);
    addFile(app, common, "--scenario", options.scenarioFile,
            "What the modem is to do wrong; it then runs on a virtual clock", false);
    app.add_option("--seed", options.seed, "Seed of what is random in the scenario")
        ->type_name("N");
    addFile(app, common, "--journal", common.session.journalFile,
            "Write every message and event, one JSON object a line", true);
}

Run declare(CLI::App& app, CommonOptions& common) {
    const auto options = std::make_shared<Options>();
    addFile(app, common, "--apns", options->apnFile, "APNs in the format of apns-conf.xml", false)
        ->required();
    addModemOptions(app, common, *options);
    // No option group, which takes an empty argument for its name and then never ends.
    CLI::Option* const plmn =
        app.add_option("--plmn", options->plmn, "The plain SIM of this operator")
            ->type_name("MCCMNC")
            ->check(CLI::Validator(
                [](const std::string& text) {
                    return areDigits(text, 5, 6) ? "" : "not 5 or 6 digits (MCC and MNC)";
                },
                ""));
    CLI::Option* const sim =
        app.add_option("--sim", options->sim,
                       "A SIM: MCCMNC,spn=..,imsi=..,gid=..,iccid=..,carrier-id=N")
            ->type_name("SIM")
            ->excludes(plmn);
    app.add_flag("--all", options->allOperators, "Every operator, each on a fresh modem")
        ->excludes(app.get_option("--state"))
        ->excludes(plmn)
        ->excludes(sim);
    app.add_flag("--explain", options->explained, "Say of each entry why it was taken or not");
    return [options](Context& context) {
        if (options->plmn.empty() && options->sim.empty() && !options->allOperators) {
            throw Failure(kUsage, "provision: whom to serve? give --plmn, --sim or --all");
        }
        return Provision(*options, context).run();
    };
}

constexpr char kProvisionFooter[] =
    "Steps: the LTE attach profile (first entry of type ia, else default), the default data call\n"
    "(first of type default), the emergency profile (first of type emergency, else none), and the\n"
    "types of all entries. Each is checked against what the modem and the library then hold.\n\n";

}  // namespace

const Command kProvisionCommand = {
    "provision",
    "Serve a SIM as a phone does when it is loaded, and check what the modem holds",
    kProvisionFooter,
    {&kBefore, &kChoice, &kStep, &kAfter, &kMismatch, &kFault, &kTotal},
    declare};

}  // namespace kiv::kivctl
