#include <unistd.h>

#include <cstdio>
#include <fstream>

#include "ModemTest.h"
#include "ScenarioFile.h"

namespace kiv::emulator {
namespace {

using std::chrono::milliseconds;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

class ScenarioTest : public ModemTest {
protected:
    ScenarioTest() {
        modem().stop();
        EXPECT_TRUE(modem().useVirtualClock(true));
        modem().start();
    }
    ~ScenarioTest() override {
        modem().stop();
        EXPECT_TRUE(modem().useVirtualClock(false));
        std::remove(path.c_str());
    }
    Scenario read(const std::string& text) {
        std::ofstream(path) << text;
        return readScenarioFile(path);
    }
    /// One letter for each of so many creations: '.' answered, 'x' not.
    static std::string create(unsigned count) {
        TestClient client;
        std::string outcomes;
        for (unsigned i = 0; i < count; ++i) {
            outcomes += client.sendCreate(k3gpp, 1000) == RAV_CLIENT_OK ? '.' : 'x';
        }
        return outcomes;
    }

    const std::string path = testing::TempDir() + std::to_string(getpid()) + "scenario";
};

TEST_F(ScenarioTest, FaultsStrikeTheNthEveryNthOrAtRandom) {
    const std::pair<const char*, const char*> kCases[] = {
        {R"({"faults": [{"request": "create", "nth": 3, "drop": true}]})", "..x........."},
        {R"({"faults": [{"request": "any", "nth": 2, "every": 4, "transport": -6}]})",
         ".x...x...x.."},
        {R"({"seed": 7, "faults": [{"probability": 0.5, "nth": 5, "drop": true}]})",
         "......x.xx.."},
    };
    for (const auto& [text, outcomes] : kCases) {
        modem().factoryReset();
        modem().play(read(text));
        EXPECT_EQ(create(12), outcomes) << text;
    }
}

TEST_F(ScenarioTest, EventsComeInTheirTimeAndEndWithAFactoryReset) {
    modem().play(read(R"({"events": [
        {"atMs": 500, "do": "createProfile", "apn": "net"},
        {"atMs": 5000, "do": "deleteProfile", "type": "3gpp2", "index": 0}]})"));
    const auto start = modem().now();
    const auto pass = [&](int atMost) {
        modem().passTime(milliseconds(atMost));
        return (modem().now() - start).count();
    };
    EXPECT_EQ(pass(1000), 500);
    EXPECT_STREQ(modem().profiles(k3gpp).at(0).settings.apn_name, "net");
    modem().factoryReset();
    EXPECT_EQ(pass(9000), 9500) << "nothing falls due";
}

TEST_F(ScenarioTest, FilesAreRefusedForWhatIsNotKnownToTheLastMember) {
    const std::pair<const char*, const char*> kCases[] = {
        {"", "empty"},
        {"{\"seed\": 1,\n  \"faults\": [}", ":2:14: "},
        {"[]", "the file: not an object"},
        {R"({"sed": 1})", "sed: unknown"},
        {R"({"seed": 1, "seed": 2})", ":1:18: 'seed' is given twice"},
        {R"({"seed": -1})", "seed: not a whole number from 0 to 18446744073709551615"},
        {R"({"faults": [{}, {"nth": 0}]})", "faults[1].nth: not a whole number from 1"},
        {R"({"faults": [{"request": "creat"}]})", "faults[0].request: not one of any, bind"},
        {R"({"faults": [{"then": [{"when": "idle"}]}]})", "faults[0].then[0].do: missing"},
        {R"({"events": [{"do": "powerOn", "index": 1}]})", "events[0].index: unknown"},
        {R"({"events": [{"do": "indication", "bytes": "0g"}]})", "events[0].bytes: not pairs"},
    };
    for (const auto& [text, complaint] : kCases) {
        try {
            read(text);
            ADD_FAILURE() << text;
        } catch (const ScenarioFileError& error) {
            EXPECT_THAT(error.what(), AllOf(HasSubstr(path), HasSubstr(complaint)));
        }
    }
    EXPECT_THROW(readScenarioFile(testing::TempDir()), ScenarioFileError);
}

TEST_F(ScenarioTest, TheJournalTellsEveryMessageAndEventButNoPassword) {
    ASSERT_TRUE(modem().startJournal(path));
    {
        TestClient client;
        client.registerForEverything();
        auto request = describeCreate(k3gpp);
        request.settings = settings3gpp("\"\xE9\n");
        request.settings.password_valid = 1;
        std::string("secret").copy(request.settings.password, 6);
        modem().addFault({.messageId = RAV_WDS_CREATE_PROFILE_REQ_V01, .delay = milliseconds(5)});
        EXPECT_EQ(client.create(request), WDS_ERR_NONE_V01);
        wds_get_profile_settings_resp_msg_v01 settings;
        client.ask(RAV_WDS_GET_PROFILE_SETTINGS_REQ_V01, client.created.profile, settings);
        modem().stop();
        EXPECT_TRUE(modem().waitForDeliveries(kPatience));
    }
    EXPECT_TRUE(modem().finishJournal());
    std::ifstream file(path);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line);
        EXPECT_THAT(line, AllOf(Not(HasSubstr("secret")), Not(HasSubstr("736563726574"))));
    }
    ASSERT_EQ(lines.size(), 16U);
    EXPECT_EQ(lines[7],
              R"({"us":0,"direction":"request","client":1,"message":"create","id":39,"members":)"
              R"({"profile_type":0,"settings":{"apn_name":"\"é\n",)"
              R"("password":"***"}}})");
    EXPECT_EQ(lines[10],
              R"({"us":5000,"direction":"response","client":1,"message":"create","id":39,)"
              R"("transport":0,"result":0,"error":0,"members":{"profile":{"type":0,"index":1}},)"
              R"j("bytes":"(12)01(11)"})j");
    EXPECT_FALSE(modem().startJournal(path + "/none"));
}

}  // namespace
}  // namespace kiv::emulator
