// Drives the library on this port through the public headers: every request of the data service, a
// change by another party, and two engines at once.

#include <kivr/Manager.h>
#include <kivr/Util.h>

#include <chrono>
#include <cstdio>
#include <future>
#include <memory>
#include <optional>
#include <string>

#include "port.h"

namespace {

int failures = 0;

void require(bool condition, const char* what) {
    std::printf("%s: %s\n", condition ? "ok" : "FAILED", what);
    failures += condition ? 0 : 1;
}

kiv::AddProfileParams profileOf(kiv::TechType technology, bool isPersistent) {
    kiv::AddProfileParams params(isPersistent, technology, false);
    params.setApnName("internet");
    params.setUserName("somebody");
    params.setHomeIPType(kiv::IPType::V4V6);
    params.setAuthType(kiv::AuthType::CHAP);
    return params;
}

size_t profilesRead(kiv::Manager& manager) {
    manager.refresh(kiv::PDCRefreshStatus::Start);
    manager.refresh(kiv::PDCRefreshStatus::Complete);
    return manager.filter(kiv::FilterProfileParams()).size();
}

void testRequests(kiv::Manager& manager, kiv::TechType technology) {
    require(profilesRead(manager) == 0, "the table is empty");
    auto key = manager.addProfile(profileOf(technology, false));
    require(key != nullptr, "a profile is created");
    if (!key) {
        return;
    }
    kiv::ModifyProfileParams change;
    change.setApnName("ims");
    require(manager.modifyProfile(change, key), "and modified");
    key.reset();
    require(profilesRead(manager) == 0, "and deleted with its last key");

    key = manager.addProfile(profileOf(technology, true));
    require(key && manager.modifyProfile(change, key), "a persistent one is modified");
    key.reset();
    require(profilesRead(manager) == 1, "and stays");
    key = manager.filter(kiv::FilterProfileParams()).front();
    const auto read = manager.getProfile(key);
    require(read && read->getApnName() == "ims" && read->getUserName() == "somebody" &&
                read->getHomeIPType() == kiv::IPType::V4V6 &&
                read->getAuthType() == kiv::AuthType::CHAP,
            "with all that was written");
    require(manager.deleteProfile(key), "until it is deleted");
}

void testChangeByAnother(kiv::Manager& manager) {
    auto key = manager.addProfile(profileOf(kiv::TechType::Tech3gpp, false));
    if (!key) {
        require(false, "a profile to be changed");
        return;
    }
    auto expired = std::make_shared<std::promise<void>>();
    auto changed = expired->get_future();
    key->registerExpirationListener([expired] { expired->set_value(); });
    port_disable_apn(WDS_PROFILE_TYPE_3GPP_V01, static_cast<uint8_t>(key->getProfileId()));
    require(changed.wait_for(std::chrono::minutes(1)) == std::future_status::ready,
            "the listener is called for another party's change");
    const auto read = manager.getProfile(key);
    require(read && read->getIsApnDisabled(), "and the change is read");
    require(manager.deleteProfile(key), "and the profile deleted");
}

}  // namespace

int main() {
    auto& manager = kiv::Manager::getInstance();
    for (int engine = 1; engine <= 3; ++engine) {  // each but the first replaces another
        manager.init(0, /*useAdbLog=*/false);
        port_wait_for_client();
        testRequests(manager, kiv::TechType::Tech3gpp);
        testRequests(manager, kiv::TechType::Tech3gpp2);
        testChangeByAnother(manager);
    }
    return failures == 0 ? 0 : 1;
}
