#include "Commands.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <string>
#include <utility>

#include "Manager.h"
#include "ScenarioFile.h"

namespace kiv::kivctl {
namespace {

/// What a run amounts to.
struct Totals {
    size_t operators = 0;
    size_t apns = 0;
    size_t created = 0;
    std::vector<Mismatch> mismatches;
};

std::string settingCell(const std::optional<std::string>& value, bool isSecret,
                        const Options& options) {
    return isSecret && value && !options.showSecrets ? "***" : cell(value);
}

/// A table of profiles: the first column names them, the others are their settings.
class ProfileTable {
public:
    ProfileTable(std::string name, const std::vector<Setting>& columns, const Options& options)
        : options(options), table(std::move(name), headings(columns)) {}

    void add(TechType techType, int id, const std::vector<Setting>& settings) {
        std::vector<std::string> cells = {profileText(techType, id)};
        for (const Setting& setting : settings) {
            cells.push_back(settingCell(setting.value, setting.isSecret, options));
        }
        table.add(std::move(cells));
    }

    std::string text() const { return table.text(options.format); }

private:
    static std::vector<std::string> headings(const std::vector<Setting>& columns) {
        std::vector<std::string> texts = {"profile"};
        for (const Setting& column : columns) {
            texts.emplace_back(column.label);
        }
        return texts;
    }

    const Options& options;
    Table table;
};

std::string modemTableText(const char* name, const ModemTable& profiles, const Options& options) {
    ProfileTable table(name, modemSettings({}), options);
    for (const HeldProfile& profile : profiles) {
        table.add(profile.techType, profile.id, modemSettings(profile));
    }
    return table.text();
}

std::string title(const char* text, const Options& options) {
    return options.format == Format::table ? std::string(text) + "\n" : std::string();
}

std::string gap(const Options& options) { return options.format == Format::table ? "\n" : ""; }

std::string summaryText(const Totals& totals, const Options& options) {
    const std::pair<size_t, const char*> counts[] = {
        {totals.operators, "operators"},
        {totals.apns, "APNs"},
        {totals.created, "profiles made"},
        {totals.mismatches.size(), "mismatches"},
    };
    std::string text;
    for (const auto& [count, what] : counts) {
        if (options.format == Format::tsv) {
            text += std::string("summary\t") + what + '\t' + std::to_string(count) + '\n';
        } else {
            text += (text.empty() ? "" : ", ") + std::string(what) + ": " + std::to_string(count);
        }
    }
    return options.format == Format::tsv ? "#summary\tcounted\tcount\n" + text : text + '\n';
}

ProvisioningReport serve(const Operator& one, const Options& options, Session& session,
                         Totals& totals) {
    session.resetModem(options.stateFile);
    session.powerOn();
    ProvisioningReport report = Provisioner(session, one).run();
    session.saveModem(options.stateFile);
    ++totals.operators;
    totals.apns += one.entries.size();
    totals.created += report.createdProfiles;
    totals.mismatches.insert(totals.mismatches.end(), report.mismatches.begin(),
                             report.mismatches.end());
    return report;
}

/// The journal of a run; ends with it.
class JournalFile {
public:
    explicit JournalFile(const Options& options) : path(options.journalFile) {
        if (!path.empty() &&
            !emulator::ModemEmulator::getInstance().startJournal(path, options.showSecrets)) {
            throw OutputError(path + ": " + std::strerror(errno));
        }
    }
    ~JournalFile() { emulator::ModemEmulator::getInstance().finishJournal(); }
    JournalFile(const JournalFile&) = delete;
    JournalFile& operator=(const JournalFile&) = delete;

    void finish() {
        if (!emulator::ModemEmulator::getInstance().finishJournal()) {
            throw OutputError(path + ": not all of the journal could be written");
        }
    }

private:
    const std::string path;
};

std::vector<const Operator*> chooseOperators(const ApnFile& file, const Options& options) {
    std::vector<const Operator*> chosen;
    if (options.allOperators) {
        for (const Operator& one : file.operators) {
            chosen.push_back(&one);
        }
    } else if (const Operator* one = file.find(options.plmn)) {
        chosen.push_back(one);
    }
    return chosen;
}

/// False if there were mismatches.
bool serveAll(const std::vector<const Operator*>& served, const Options& options, Session& session,
              JournalFile& journal, Output& output) {
    Totals totals;
    for (const Operator* one : served) {
        const ProvisioningReport report = serve(*one, options, session, totals);
        if (options.allOperators) {
            output.showProgress(totals.operators, served.size());
        } else {
            output.print(reportText(report, options));
        }
    }
    session.settle();
    journal.finish();
    output.print(mismatchText(totals.mismatches, options));
    output.print(summaryText(totals, options));
    return totals.mismatches.empty();
}

/// The scenario that was asked for; a seed alone is one in which nothing happens.
std::optional<emulator::Scenario> chooseScenario(const Options& options) {
    if (options.scenarioFile.empty() && !options.seed) {
        return std::nullopt;
    }
    auto scenario = options.scenarioFile.empty() ? emulator::Scenario{}
                                                 : emulator::readScenarioFile(options.scenarioFile);
    scenario.seed = options.seed.value_or(scenario.seed);
    return scenario;
}

}  // namespace

std::string mismatchText(const std::vector<Mismatch>& mismatches, const Options& options) {
    if (mismatches.empty()) {
        return {};
    }
    Table table("mismatch", {"operator", "step", "holder", "profile", "setting", "asked", "held"});
    for (const Mismatch& one : mismatches) {
        table.add({one.plmn.empty() ? "none" : one.plmn, one.step, one.holder,
                   one.profile.empty() ? "-" : one.profile, one.setting,
                   settingCell(one.asked, one.isSecret, options),
                   settingCell(one.held, one.isSecret, options)});
    }
    return title("Mismatches", options) + table.text(options.format) + gap(options);
}

std::string reportText(const ProvisioningReport& report, const Options& options) {
    Table steps("step", {"step", "result", "profile", "apn", "line"});
    for (const StepReport& step : report.steps) {
        const ApnEntry* entry = step.entry;
        steps.add({step.step, step.result, step.profile.empty() ? "-" : step.profile,
                   entry ? cell(entry->params.getApnName()) : "-",
                   entry ? std::to_string(entry->line) : "-"});
    }
    return title("Modem before", options) + modemTableText("before", report.before, options) +
           gap(options) + title("Steps", options) + steps.text(options.format) + gap(options) +
           title("Modem after", options) + modemTableText("after", report.after, options) +
           gap(options);
}

int runProvision(const Options& options, Output& output) {
    const std::optional<emulator::Scenario> scenario = chooseScenario(options);
    const ApnFile file = readApnFile(options.apnFile);
    for (const std::string& problem : file.problems) {
        output.complain(problem);
    }
    const std::vector<const Operator*> served = chooseOperators(file, options);
    if (served.empty() && !options.allOperators) {
        output.complain(options.apnFile + ": no readable entry of operator " +
                        (options.plmn.empty() ? "none" : options.plmn));
        return kFailed;
    }
    Session session(options.bindValue);
    if (scenario) {
        output.complain("scenario: seed " + std::to_string(scenario->seed));
        session.usePlay(*scenario);
    }
    JournalFile journal(options);
    if (!serveAll(served, options, session, journal, output)) {
        return kFailed;
    }
    return file.problems.empty() ? kOk : kUnreadableEntries;
}

int runList(const Options& options, Output& output) {
    Session session(options.bindValue);
    session.resetModem(options.stateFile);
    session.powerOn();
    Manager& manager = Manager::getInstance();
    auto keys = manager.filter(FilterProfileParams{});
    if (keys.empty() && !readModemTable().empty()) {
        throw ModemUnreachable("the library has read no profile from the modem");
    }
    keys.sort([](const auto& a, const auto& b) {
        return std::pair(a->getTechType(), a->getProfileId()) <
               std::pair(b->getTechType(), b->getProfileId());
    });
    ProfileTable table("profile", clientSettings({}), options);
    for (const auto& key : keys) {
        if (const auto params = manager.getProfile(key)) {
            table.add(key->getTechType(), key->getProfileId(), clientSettings(*params));
        }
    }
    session.saveModem(options.stateFile);
    output.print(table.text());
    return kOk;
}

}  // namespace kiv::kivctl
