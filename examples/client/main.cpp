#include <kivr/Manager.h>
#include <kivr/Util.h>
#include <kivr_emulator/ModemEmulator.h>

#include <chrono>
#include <future>
#include <memory>
#include <optional>
#include <string>

#include "Util.h"

static_assert(__cplusplus == 201703L, "the headers are for clients of the oldest standard too");

bool firstProfileIsRead();

namespace {

constexpr std::chrono::minutes kPatience{1};

kiv::emulator::ModemEmulator& modem() { return kiv::emulator::ModemEmulator::getInstance(); }

// What a data call asks of the library.
kiv::ProfileParams internet() {
    kiv::ProfileParams params;
    params.setApnName("internet");
    params.setHomeIPType(kiv::IPType::V4V6);
    params.setApnTypesMask(kiv::toMask(kiv::ApnTypes::DEFAULT));
    return params;
}

// The modem refuses to create the next profile.
void refuseNextProfile() {
    kiv::emulator::Fault fault;
    fault.messageId = RAV_WDS_CREATE_PROFILE_REQ_V01;
    fault.error = WDS_ERR_PROFILE_TABLE_FULL_V01;
    modem().addFault(fault);
}

int run(kiv::Manager& manager) {
    kiv::Util util;
    int failures = 0;

    refuseNextProfile();
    auto key = util.findOrCreateProfileForSetupDataCall(kiv::TechType::Tech3gpp, internet());
    failures += client::require(!key, "no profile while the modem refuses");

    key = util.findOrCreateProfileForSetupDataCall(kiv::TechType::Tech3gpp, internet());
    if (!key) {
        return failures + client::require(false, "a profile for the data call");
    }
    const auto index = static_cast<uint8_t>(key->getProfileId());
    const auto held = modem().profile(WDS_PROFILE_TYPE_3GPP_V01, index);
    failures += client::require(held && held->settings.apn_name == std::string("internet"),
                                "the modem holds the data call's profile");
    failures += client::require(firstProfileIsRead(), "and the library reads it");

    auto expired = std::make_shared<std::promise<void>>();
    auto changed = expired->get_future();
    key->registerExpirationListener([expired] { expired->set_value(); });
    wds_profile_settings_type_v01 settings{};
    settings.apn_disabled_valid = settings.apn_disabled = 1;
    modem().modifyProfile(WDS_PROFILE_TYPE_3GPP_V01, index, settings);
    failures += client::require(changed.wait_for(kPatience) == std::future_status::ready,
                                "the network's change is told");

    const auto params = manager.getProfile(key);
    failures +=
        client::require(params && params->getIsApnDisabled(), "and the new settings are read");
    return failures;
}

}  // namespace

int main() {
    modem().start();
    auto& manager = kiv::Manager::getInstance();
    manager.init(0, true);
    if (!modem().waitForRegisteredClient(kPatience)) {
        return client::require(false, "the library finds the modem");
    }
    manager.refresh(kiv::PDCRefreshStatus::Complete);
    return run(manager);
}
