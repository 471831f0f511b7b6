#ifndef TESTS_SUPPORT_ENGINE_H
#define TESTS_SUPPORT_ENGINE_H

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "EmulatedModem.h"
#include "LogCapture.h"
#include "Manager.h"
#include "Params.h"

namespace kiv::test {

/// The library as a client sees it, on a fresh modem, with an empty cache.
class EngineTest : public testing::Test {
protected:
    void SetUp() override {
        modem().stop();
        modem().factoryReset();
        modem().start();
        startEngine();
    }

    void startEngine() {
        manager.init(0, true);
        ASSERT_TRUE(modem().waitForRegisteredClient(kPatience));
    }
    void refresh() { manager.refresh(PDCRefreshStatus::Complete); }

    std::shared_ptr<IProfileKey> add(const std::string& apnName, bool persistent = false) {
        return manager.addProfile(addParams(apnName, persistent));
    }
    static std::vector<emulator::Profile> table(
        wds_profile_type_enum_v01 type = WDS_PROFILE_TYPE_3GPP_V01) {
        return modem().profiles(type);
    }

    LogCapture log;
    Manager& manager = Manager::getInstance();
};

}  // namespace kiv::test

#endif
