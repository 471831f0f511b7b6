#include "ProfileCache.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

#include "ClientRequest.h"
#include "ClientResponse.h"
#include "EmulatedModem.h"
#include "LoggedTest.h"
#include "Params.h"

namespace kiv {
namespace {

using namespace test;

constexpr auto k3gpp = WDS_PROFILE_TYPE_3GPP_V01;
constexpr const char* kConfirmed = "ProfileCache: pending transaction confirmed";
constexpr const char* kUpdating = "ProfileCache: updating cache due to indication!";

/// A cache whose worker thread is the test's own thread.
class ProfileCacheTest : public LoggedTest {
protected:
    ProfileCacheTest() {
        modem().factoryReset();
        modem().start();
        // As the request manager does, but on the thread that drops the key.
        cache = std::make_unique<ProfileCache>(
            events, 0, [this](const std::shared_ptr<ClientRequest>& request) {
                const auto callback = std::dynamic_pointer_cast<CallbackRequest>(request);
                if (callback->hasReleaseToken()) {
                    cache->releaseProfile(callback->getReleaseToken());
                }
                return nullptr;
            });
        serveUntil("RavWdsProxy config register request successful!");
    }
    ~ProfileCacheTest() override {
        // What the modem told is taken in before the cache goes, which would not free it.
        EXPECT_TRUE(modem().waitForDeliveries(kPatience));
        events.wake();
        events.processEvents();
        cache.reset();
        modem().stop();
        EXPECT_EQ(modem().openClients(), 0U);
    }

    /// Runs the loop until the line has been written so often since the last clear.
    void serveUntil(const std::string& line, size_t times = 1) {
        while (log.count(line) < times) {
            events.processEvents();
        }
    }
    static std::vector<emulator::Profile> table() { return modem().profiles(k3gpp); }

    EventManager events;
    std::unique_ptr<ProfileCache> cache;
};

TEST_F(ProfileCacheTest, RegistersWithTheModemOnceTheServiceIsUp) {
    const struct {
        unsigned messageId;
        size_t length;
        std::vector<std::pair<size_t, uint8_t>> bytes;  // all others are zero
    } rows[] = {{0x00AF, 4, {}},
                {0x0003, 398, {{16, 1}, {17, 1}}},
                {0x00A7, 2052, {{0, 1}, {4, 1}, {8, 255}, {12, 255}, {2048, 1}, {2049, 1}}}};
    for (size_t i = 0; i < 3; ++i) {
        std::vector<std::byte> expected(rows[i].length);
        for (const auto& [offset, value] : rows[i].bytes) {
            expected[offset] = std::byte{value};
        }
        const emulator::Request request = modem().requests().at(i);
        EXPECT_EQ(request.messageId, rows[i].messageId);
        EXPECT_EQ(request.bytes, expected);
    }
}

TEST_F(ProfileCacheTest, ModifySendsOnlyWhatChangesAndHidesTheModemsRefusal) {
    const auto key = cache->add(addParams("apn"));
    EXPECT_TRUE(cache->modify(userName("u"), key));
    EXPECT_STREQ(table()[0].settings.user_name, "u");
    EXPECT_TRUE(cache->modify(userName("u"), key));
    EXPECT_EQ(requestCount(RAV_WDS_MODIFY_PROFILE_SETTINGS_REQ_V01), 1U);
    refuse(RAV_WDS_MODIFY_PROFILE_SETTINGS_REQ_V01);
    EXPECT_TRUE(cache->modify(userName("v"), key));
    EXPECT_EQ(cache->get(key)->getUserName(), "u");
    serveUntil(kConfirmed, 3);
}

TEST_F(ProfileCacheTest, TheIndexCountsByItsLowBitsAndAnUnknownEventMeansReady) {
    modem().sendProfileChanged({k3gpp, 0x105, static_cast<wds_profile_change_enum_v01>(0)});
    serveUntil("ProfileCache: onIndication < 3GPP:5 ProfileReady");
    EXPECT_TRUE(log.contains("Refreshed Profiles:"));
    log.clear();
    cache->onIndication({TechType::Tech3gpp, 1, static_cast<ProfileChangeEvent>(5)});
    EXPECT_THAT(takeLines(), testing::ElementsAre("EVENT ProfileCache: onIndication < 3GPP:1 5",
                                                  std::string("EVENT ") + kUpdating,
                                                  "ERROR Invalid ProfileChangedEvent"));
}

TEST_F(ProfileCacheTest, AStreamOfIndicationsLeavesTurnsToOthers) {
    for (int i = 0; i < 6; ++i) {
        modem().sendProfileChanged({WDS_PROFILE_TYPE_3GPP_V01, 9, WDS_PROFILE_CHANGE_DELETED_V01});
    }
    ASSERT_TRUE(modem().waitForDeliveries(test::kPatience));
    events.processEvents();
    EXPECT_EQ(log.count(kUpdating), 4U);
    serveUntil(kUpdating, 6);
}

}  // namespace
}  // namespace kiv
