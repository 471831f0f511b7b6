#include "Session.h"

#include <string>

#include "Manager.h"
#include "ModemEmulator.h"

namespace kiv::kivctl {

using emulator::ModemEmulator;

void Session::resetModem() {
    ModemEmulator& modem = ModemEmulator::getInstance();
    // Echoes that were not delivered would be taken for echoes of the next modem's changes.
    settle();
    modem.stop();
    modem.factoryReset();
    modem.installFactoryProfiles();
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
