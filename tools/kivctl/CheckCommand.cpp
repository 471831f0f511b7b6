#include <map>
#include <memory>
#include <unordered_map>

#include "ApnFile.h"
#include "Command.h"
#include "Sim.h"
#include "Text.h"

namespace kiv::kivctl {
namespace {

const Report kFlaw = {
    "flaw", "Flaws", {{"line"}, {"column"}, {"severity"}, {"operator"}, {"flaw"}, {"remedy"}}};
const Report kCount = {
    "total", "", {{"operators"}, {"entries"}, {"errors"}, {"warnings"}, {"notes"}}, true};

constexpr const char* kSeverities[] = {"note", "warning", "error"};
constexpr Tone kTones[] = {Tone::plain, Tone::warning, Tone::bad};

/// Whom an entry serves, as provision --sim names it.
std::string operatorOf(const ApnEntry& entry) {
    std::string text = entry.plmn;
    if (!entry.mvnoType.empty()) {
        text += "," + entry.mvnoType + "=" + entry.mvnoData;
    }
    if (entry.carrierId >= 0) {
        text += (text.empty() ? "" : ",") + ("carrier-id=" + std::to_string(entry.carrierId));
    }
    return text;
}

/// One check of a file.
class Checker {
public:
    Checker(const ApnFile& file, Context& context)
        : file(file), context(context), printer(context.printer) {}

    ExitStatus run() {
        for (const ApnEntry& entry : file.entries) {
            context.output.showProgress("checking", ++checked, file.entries.size());
            checkEntry(entry);
        }
        const std::vector<Sim> sims = simsOf(file);
        for (const Sim& sim : sims) {
            context.output.showProgress("operators", ++served, sims.size());
            checkOperator(sim);
        }
        const auto count = [&](Severity severity) { return counts[static_cast<size_t>(severity)]; };
        printer.add(kCount, {sims.size(), file.entries.size(), count(Severity::error),
                             count(Severity::warning), count(Severity::note)});
        return count(Severity::error) > 0     ? kUnreadableEntries
               : count(Severity::warning) > 0 ? kFailed
                                              : kOk;
    }

private:
    void add(Severity severity, const ApnEntry& entry, const std::string& name,
             const std::string& what, const std::string& remedy) {
        const auto index = static_cast<size_t>(severity);
        ++counts[index];
        printer.add(kFlaw,
                    {entry.line, entry.column, kSeverities[index],
                     name.empty() ? Json() : Json(name), what, remedy},
                    kTones[index]);
    }

    void checkEntry(const ApnEntry& entry) {
        const std::string name = operatorOf(entry);
        for (const Flaw& flaw : entry.flaws) {
            add(flaw.severity, entry, name, flaw.what, flaw.remedy);
        }
        if (!entry.isUsable) {
            return;
        }
        if (!entry.isEnabled) {
            add(Severity::note, entry, name, "carrier_enabled is false", "never serves");
        } else if (!entry.admits3gpp) {
            add(Severity::note, entry, name, "no 3GPP technology is admitted", "never serves");
        } else if (!entry.params.hasApnName()) {
            add(Severity::note, entry, name, "no apn", "the network chooses");
        }
        const auto [first, isNew] =
            seen.try_emplace(lowered(name) + "\n" + entry.params.dump() +
                                 (entry.admitsLte ? "L" : "") + (entry.admits3gpp ? "3" : ""),
                             entry.line);
        if (!isNew) {
            add(Severity::warning, entry, name,
                "the same as the entry of line " + std::to_string(first->second),
                "the first one serves");
        }
    }

    void checkOperator(const Sim& sim) {
        const std::vector<Candidate> candidates = candidatesFor(file, sim);
        if (candidates.empty()) {
            return;
        }
        const auto require = [&](const Need& need, const char* what) {
            if (choose(candidates, need, sim).entry == nullptr) {
                add(Severity::warning, *candidates.front().entry, sim.text(), what,
                    "the step is skipped");
            }
        };
        require({{ApnTypes::DEFAULT}}, "the operator has no entry for data");
        require({{ApnTypes::IA, ApnTypes::DEFAULT}, true}, "the operator has no entry for attach");
    }

    const ApnFile& file;
    Context& context;
    Printer& printer;
    std::unordered_map<std::string, size_t> seen;  ///< the line of the first entry of its kind
    size_t counts[3] = {};
    size_t checked = 0;
    size_t served = 0;
};

Run declare(CLI::App& app, CommonOptions& common) {
    const auto path = std::make_shared<std::string>();
    addFile(app, common, "FILE", *path, "APNs in the format of apns-conf.xml", false)->required();
    return [path](Context& context) {
        const ApnFile file = readApnFile(*path, [&](size_t done, size_t total) {
            context.output.showProgress("reading", done, total);
        });
        return Checker(file, context).run();
    };
}

constexpr char kCheckFooter[] =
    "Severities: an error costs an entry (exit status 3), a warning a part of what the file says\n"
    "(1), a note nothing (0).\n\n";

}  // namespace

const Command kCheckCommand = {"check",
                               "List what is wrong with an APN file, and what is done about it",
                               kCheckFooter,
                               {&kFlaw, &kCount},
                               declare};

}  // namespace kiv::kivctl
