#include "ModemTest.h"

namespace kiv::emulator {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;

constexpr auto k3gpp = WDS_PROFILE_TYPE_3GPP_V01;
constexpr unsigned kCreate = RAV_WDS_CREATE_PROFILE_REQ_V01;

class ClockTest : public ModemTest {
protected:
    ClockTest() {
        EXPECT_FALSE(modem().useVirtualClock(true)) << "the power is on";
        modem().stop();
        EXPECT_TRUE(modem().useVirtualClock(true));
        modem().start();
    }
    ~ClockTest() override {
        modem().stop();
        EXPECT_TRUE(modem().useVirtualClock(false));
    }
    void delayNext(milliseconds delay) { modem().addFault({kCreate, 1, delay, {}, {}, {}}); }
    static int create(TestClient& client, unsigned timeout) {
        wds_create_profile_resp_msg_v01 response;
        return client.send(kCreate, describeCreate(k3gpp), response, timeout);
    }
};

TEST_F(ClockTest, TimeOutsAndDelaysCostNoTime) {
    constexpr unsigned kDay = 24U * 3600 * 1000;
    TestClient client;
    const struct {
        milliseconds delay;
        unsigned timeout;
        int result;
    } kCases[] = {{hours(23), kDay, RAV_CLIENT_OK},
                  {hours(24), kDay, RAV_CLIENT_OK},
                  {hours(24), kDay - 1, RAV_CLIENT_ERR_TIMEOUT},
                  {milliseconds(0), 0, RAV_CLIENT_OK}};
    for (const auto& c : kCases) {
        delayNext(c.delay);
        EXPECT_EQ(create(client, c.timeout), c.result);
    }
}

TEST_F(ClockTest, ARequestsCallbacksHaveReturnedBeforeItsSenderGoesOn) {
    TestClient client;
    client.registerForEverything();
    for (size_t i = 1; i <= 200; ++i) {
        EXPECT_EQ(create(client, 0), RAV_CLIENT_OK);
        ASSERT_EQ(client.events.all().size(), 2 * i);
    }
    client.onEachIndication = [&] {
        TestClient other;
        client.events.add(create(other, 1) == RAV_CLIENT_OK ? "nested" : "failed");
        client.onEachIndication = [] {};
    };
    EXPECT_EQ(create(client, 0), RAV_CLIENT_OK);
    EXPECT_EQ(client.events.all().size(), 405U) << "the nested one's callbacks too";
    EXPECT_EQ(client.events.all()[401], "nested");
}

TEST_F(ClockTest, TimePassesForOneWhoWaitsAndWhenItIsToldTo) {
    TestClient first, second, third;
    const auto start = modem().now();
    modem().passTime(hours(1));
    EXPECT_EQ(modem().now(), start + hours(1));
    delayNext(hours(2));
    EXPECT_EQ(create(first, 1000), RAV_CLIENT_ERR_TIMEOUT);
    modem().passTime(hours(3));
    EXPECT_EQ(modem().now(), start + hours(4) + milliseconds(1000)) << "a late answer is no event";
    delayNext(hours(2));
    std::thread waiting([&] { EXPECT_EQ(create(second, 7200000), RAV_CLIENT_OK); });
    waiting.join();
    EXPECT_EQ(create(third, 0), RAV_CLIENT_OK);
}

}  // namespace
}  // namespace kiv::emulator
