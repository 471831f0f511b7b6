#include "ModemEmulator.h"
#include "Util.h"

static_assert(__cplusplus == 201703L, "the headers are for clients of the oldest standard too");

// Ends well if the installed library provides a profile on the installed emulator.
int main() {
    auto& modem = kiv::emulator::ModemEmulator::getInstance();
    modem.start();
    auto& manager = kiv::Manager::getInstance();
    manager.init(0, true);
    if (!modem.waitForRegisteredClient(std::chrono::minutes(1))) {
        return 1;
    }
    kiv::ProfileParams params;
    params.setApnName("internet");
    auto key =
        manager.addProfile(kiv::AddProfileParams(params, true, kiv::TechType::Tech3gpp, false));
    return key && modem.profile(WDS_PROFILE_TYPE_3GPP_V01, key->getProfileId()) ? 0 : 2;
}
