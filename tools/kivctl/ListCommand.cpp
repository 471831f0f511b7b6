#include "Command.h"
#include "ModemEmulator.h"
#include "Verification.h"

namespace kiv::kivctl {
namespace {

Report profileReport() {
    Report report{"profile", "", {{"profile"}}};
    for (const Setting& setting : allSettings()) {
        report.fields.push_back({setting.name, setting.traits.isSecret});
    }
    return report;
}
const Report kProfiles = profileReport();

bool isModemEmpty() {
    const auto& modem = emulator::ModemEmulator::getInstance();
    return modem.profiles(WDS_PROFILE_TYPE_3GPP_V01).empty() &&
           modem.profiles(WDS_PROFILE_TYPE_3GPP2_V01).empty();
}

ExitStatus run(Context& context) {
    Session& session = context.session();
    const Snapshot snapshot = readLibrary();
    if (snapshot.empty() && !isModemEmpty()) {
        throw Failure(kModemUnreachable, "the library has read no profile from the modem");
    }
    context.printer.declare(kProfiles);
    for (const Held& one : snapshot) {
        std::vector<Json> values = {profileText(one.techType, one.id)};
        for (const Setting& setting : allSettings()) {
            values.push_back(setting.print(one.params));
        }
        context.printer.add(kProfiles, values);
    }
    session.finish();
    return kOk;
}

Run declare(CLI::App& app, CommonOptions& common) {
    addFile(app, common, "--state", common.session.stateFile,
            "The modem's profiles; without such a file the modem is fresh", false);
    return run;
}

}  // namespace

const Command kListCommand = {
    "list", "Show the modem's profiles as the library reads them", "", {&kProfiles}, declare};

}  // namespace kiv::kivctl
