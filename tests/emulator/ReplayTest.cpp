#include <cstdio>
#include <fstream>

#include "ModemTest.h"

namespace kiv::emulator {
namespace {

class ReplayTest : public ModemTest {
protected:
    ReplayTest() {
        modem().stop();
        EXPECT_TRUE(modem().useVirtualClock(true));
    }
    ~ReplayTest() override {
        modem().finishReplay();
        modem().stop();
        EXPECT_TRUE(modem().useVirtualClock(false));
        std::remove(path.c_str());
    }
    /// What is wrong with the journal; empty if it can be replayed.
    std::string replay(const std::string& journal) {
        std::ofstream(path) << journal;
        std::string error;
        const bool isStarted = modem().startReplay(path, error);
        EXPECT_EQ(isStarted, error.empty());
        return error.empty() ? error : error.substr(path.size() + 2);
    }

    const std::string path =
        testing::TempDir() + testing::UnitTest::GetInstance()->current_test_info()->name();
};

constexpr char kOpened[] = "{\"us\":0,\"direction\":\"open\",\"client\":1,\"what\":\"client\"}\n";

TEST_F(ReplayTest, RefusesWhatIsNoJournal) {
    const std::pair<std::string, std::string> kCases[] = {
        {"", "it holds nothing"},
        {"{", "line 1: not a JSON object"},
        {R"({"us":[[[[[[[[[[1]]]]]]]]]]})", "line 1: too deep"},
        {R"({"us":-1,"direction":"event","what":"x"})", "line 1: us: not what a journal holds"},
        {R"({"us":1,"what":"x"})", "line 1: direction is missing"},
        {R"({"us":1,"direction":"up","what":"x"})", "line 1: direction: not what a journal holds"},
        {R"({"us":1,"direction":"error","client":1,"what":"x"})",
         "line 1: client: it was open before the journal began"},
        {std::string(kOpened) + R"({"us":1,"direction":"request","client":1,"id":1,"members":{}})",
         "line 2: id: no request of the service"},
        {std::string(kOpened) +
             R"({"us":1,"direction":"response","client":1,"id":43,"transport":0})",
         "line 2: no bytes: record the journal with passwords to replay it"},
        {std::string(kOpened) +
             R"({"us":1,"direction":"response","client":1,"id":43,"transport":0,"bytes":"(8)01"})",
         "line 2: bytes: not what a journal holds, or not as many"},
        {std::string(kOpened) +
             R"({"us":1,"direction":"indication","client":1,"id":1,"bytes":"(99999999999)00"})",
         "line 2: bytes: not what a journal holds, or not as many"},
    };
    for (const auto& [journal, error] : kCases) {
        EXPECT_EQ(replay(journal), error) << journal;
        EXPECT_EQ(modem().finishReplay(), std::nullopt);
    }
}

TEST_F(ReplayTest, TheFirstDifferenceEndsItWithTheModemOff) {
    const std::string started =
        "{\"us\":0,\"direction\":\"program\",\"what\":\"start\"}\n"
        "{\"us\":0,\"direction\":\"event\",\"what\":\"service up\"}\n" +
        std::string(kOpened);
    const std::string created =
        "{\"us\":0,\"direction\":\"request\",\"client\":1,\"id\":39,\"members\":"
        "{\"profile_type\":0,\"settings\":{}}}\n";
    const std::string listed =
        "{\"us\":0,\"direction\":\"response\",\"client\":1,\"id\":42,\"transport\":0,"
        "\"bytes\":\"(14300)\"}\n";
    const std::pair<std::string, std::string> kCases[] = {
        {"", "the end: sent create, recorded nothing more"},
        {listed, "line 4: recorded an answer, and there is no request"},
        {created + listed, "line 5: recorded an answer, and there is no request"},
        {created + kOpened, "line 5: client: it was open before the journal began"},
        {"{\"us\":0,\"direction\":\"program\",\"what\":\"stop\"}",
         "line 4: recorded program stop, the program did start"},
    };
    for (const auto& [rest, difference] : kCases) {
        SCOPED_TRACE(difference);
        const std::string refused = replay(started + rest);
        if (!refused.empty()) {
            EXPECT_EQ(refused, difference);
            continue;
        }
        modem().start();
        EXPECT_TRUE(modem().isRunning());
        TestClient client;
        modem().start();
        EXPECT_EQ(client.sendCreate(k3gpp), RAV_CLIENT_ERR_SERVICE_GONE);
        EXPECT_FALSE(modem().isRunning());
        EXPECT_EQ(modem().finishReplay(), path + ": " + difference);
    }
}

}  // namespace
}  // namespace kiv::emulator
