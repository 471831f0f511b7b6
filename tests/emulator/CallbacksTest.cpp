#include "ModemTest.h"

namespace kiv::emulator {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using CallbacksTest = ModemTest;

TEST_F(CallbacksTest, IndicationsFollowTheConfiguredList) {
    using Lines = std::vector<std::string>;
    const Lines k3gppLines{"3gpp 1 created", "3gpp 1 modified"};
    const Lines allLines{"3gpp2 0 created", "3gpp2 0 modified", "3gpp2 0 deleted", "3gpp 1 created",
                         "3gpp 1 modified"};
    const struct {
        std::vector<wds_profile_identifier_type_v01> list;
        Lines lines;
    } kCases[] = {
        {{{kAll, 255}}, allLines},
        {{{k3gpp, 255}}, k3gppLines},
        {{{k3gpp, 1}, {k3gpp2, 0}}, allLines},
        {{{k3gpp, 2}}, {}},
        {{}, allLines},
    };
    for (const auto& c : kCases) {
        modem().factoryReset();
        TestClient client, unregistered, unconfigured;
        unconfigured.bindAndRegister();
        client.bindAndRegister();
        EXPECT_EQ(unregistered.configureEvents(c.list), WDS_ERR_NONE_V01);
        EXPECT_EQ(client.configureEvents(c.list), WDS_ERR_NONE_V01);
        EXPECT_EQ(modem().createProfile(k3gpp2, {}, true), 0);
        EXPECT_TRUE(modem().deleteProfile(k3gpp2, 0));
        EXPECT_EQ(client.create(k3gpp), WDS_ERR_NONE_V01);  // its own change
        EXPECT_TRUE(modem().waitForDeliveries(kPatience));
        EXPECT_EQ(client.events.all(), c.lines);
        EXPECT_THAT(unregistered.events.all(), IsEmpty());
        EXPECT_THAT(unconfigured.events.all(), IsEmpty());
    }
}

TEST_F(CallbacksTest, AReleaseWaitsForTheRunningCallback) {
    TestClient client;
    client.registerForEverything();
    client.onEachIndication = [&] {
        while (modem().openClients() != 0) {
            std::this_thread::yield();
        }
        client.events.add("callback ends");
    };
    modem().sendProfileChanged({k3gpp, 1, WDS_PROFILE_CHANGE_MODIFIED_V01});
    client.events.waitForCount(1);
    EXPECT_EQ(client.release(), RAV_CLIENT_OK);
    client.events.add("released");
    EXPECT_THAT(client.events.all(), ElementsAre(testing::_, "callback ends", "released"));
}

TEST_F(CallbacksTest, AReleaseWithinTheCallbackMakesItTheLast) {
    TestClient client;
    client.registerForEverything();
    client.onEachIndication = [&] {
        EXPECT_FALSE(modem().waitForDeliveries(kPatience)) << "it would wait for itself";
        EXPECT_EQ(client.release(), RAV_CLIENT_OK);
    };
    modem().createProfile(k3gpp, {}, true);
    EXPECT_TRUE(modem().waitForDeliveries(kPatience));
    EXPECT_THAT(client.events.all(), ElementsAre("3gpp 1 created"));
}

}  // namespace
}  // namespace kiv::emulator
