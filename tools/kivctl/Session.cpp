#include "Session.h"

#include <filesystem>
#include <string>

#include "Manager.h"
#include "ModemEmulator.h"
#include "Output.h"

namespace kiv::kivctl {

using emulator::ModemEmulator;

void Session::resetModem(const std::string& stateFile) {
    ModemEmulator& modem = ModemEmulator::getInstance();
    // Echoes that were not delivered would be taken for echoes of the next modem's changes.
    settle();
    modem.stop();
    modem.factoryReset();
    std::error_code ignored;
    if (stateFile.empty() || std::filesystem::symlink_status(stateFile, ignored).type() ==
                                 std::filesystem::file_type::not_found) {
        modem.installFactoryProfiles();
        return;
    }
    std::string error;
    if (!modem.loadState(stateFile, error)) {
        throw StateUnreadable(error);
    }
}

void Session::saveModem(const std::string& stateFile) const {
    std::string error;
    if (!stateFile.empty() && !ModemEmulator::getInstance().saveState(stateFile, error)) {
        throw OutputError(error);
    }
}

void Session::powerOn() {
    ModemEmulator& modem = ModemEmulator::getInstance();
    modem.start();
    Manager& manager = Manager::getInstance();
    if (!isLibraryStarted) {
        manager.init(bindValue, true);
        isLibraryStarted = true;
    }
    if (!modem.waitForRegisteredClient(patience)) {
        throw ModemUnreachable("the library has not registered with the modem within " +
                               std::to_string(patience.count()) + " ms");
    }
    manager.refresh(PDCRefreshStatus::Complete);
}

void Session::settle() const {
    if (!ModemEmulator::getInstance().waitForDeliveries(patience)) {
        throw ModemUnreachable("the modem has not delivered its indications within " +
                               std::to_string(patience.count()) + " ms");
    }
}

}  // namespace kiv::kivctl
