#include "ModemTest.h"

namespace kiv::emulator {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;

constexpr unsigned kCreate = RAV_WDS_CREATE_PROFILE_REQ_V01;
constexpr unsigned kDay = 24U * 3600 * 1000;

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
    void delayNext(milliseconds delay) { modem().addFault({.messageId = kCreate, .delay = delay}); }
};

TEST_F(ClockTest, ARequestsCallbacksHaveReturnedBeforeItsSenderGoesOn) {
    TestClient client;
    client.registerForEverything();
    client.onEachIndication = [&] {
        TestClient other;
        delayNext(hours(1));  // time passes although a callback is held up
        client.events.add(other.sendCreate(k3gpp, kDay) == RAV_CLIENT_OK ? "nested" : "failed");
        client.onEachIndication = [] {};
    };
    EXPECT_EQ(client.sendCreate(k3gpp, 0), RAV_CLIENT_OK);
    ASSERT_EQ(client.events.all().size(), 5U) << "the nested one's callbacks too";
    EXPECT_EQ(client.events.all()[1], "nested");
}

TEST_F(ClockTest, TimePassesForOneWhoWaitsAndWhenItIsToldTo) {
    TestClient first, second;
    const auto start = modem().now();
    modem().passTime(hours(1));
    EXPECT_EQ(modem().now(), start + hours(1));
    delayNext(hours(2));
    EXPECT_EQ(first.sendCreate(k3gpp, 1000), RAV_CLIENT_ERR_TIMEOUT);
    modem().passTime(hours(3));
    EXPECT_EQ(modem().now(), start + hours(4) + milliseconds(1000)) << "a late answer is no event";
    EXPECT_EQ(second.sendCreate(k3gpp, 0), RAV_CLIENT_OK);
}

}  // namespace
}  // namespace kiv::emulator
