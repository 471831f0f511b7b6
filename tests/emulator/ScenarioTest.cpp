#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>

#include "ModemTest.h"
#include "ScenarioFile.h"

namespace kiv::emulator {
namespace {

using std::chrono::milliseconds;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

constexpr auto k3gpp = WDS_PROFILE_TYPE_3GPP_V01;

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
    std::string complaintAbout(const std::string& text) {
        try {
            read(text);
        } catch (const ScenarioFileError& error) {
            return error.what();
        }
        return "none";
    }
    /// One letter for each of so many creations: '.' answered, 'x' not.
    std::string create(unsigned count) {
        TestClient client;
        std::string outcomes;
        for (unsigned i = 0; i < count; ++i) {
            wds_create_profile_resp_msg_v01 response;
            const int sent =
                client.send(RAV_WDS_CREATE_PROFILE_REQ_V01, describeCreate(k3gpp), response, 1000);
            outcomes += sent == RAV_CLIENT_OK ? '.' : 'x';
        }
        return outcomes;
    }

    const std::string path = testing::TempDir() + std::to_string(getpid()) + "scenario";
};

TEST_F(ScenarioTest, FaultsStrikeTheNthEveryNthOrAtRandom) {
    const struct {
        std::string text, outcomes;
    } kCases[] = {
        {R"({"faults": [{"request": "create", "nth": 3, "drop": true}]})", "..x........."},
        {R"({"faults": [{"request": "any", "nth": 2, "every": 4, "transport": -6}]})",
         ".x...x...x.."},
        {R"({"faults": [{"request": "create", "probability": 1, "drop": true}]})", "xxxxxxxxxxxx"},
        {R"({"faults": [{"request": "delete", "every": 1, "drop": true}]})", "............"},
        {R"({"seed": 7, "faults": [{"probability": 0.5, "nth": 5, "drop": true}]})",
         "......x.xx.."},
        {R"({"seed": 8, "faults": [{"probability": 0.5, "nth": 5, "drop": true}]})",
         "....x...x.xx"},
    };
    for (const auto& c : kCases) {
        modem().factoryReset();
        modem().play(read(c.text));
        EXPECT_EQ(create(12), c.outcomes) << c.text;
    }
}

TEST_F(ScenarioTest, EventsComeInTheirTimeAndEndWithAFactoryReset) {
    modem().play(read(R"({"capacity3gpp": 2, "events": [
        {"atMs": 500, "do": "createProfile", "apn": "net", "apnTypes": 5, "persistent": false},
        {"atMs": 200, "do": "createProfile", "type": "3gpp2", "user": "me"},
        {"atMs": 900, "do": "powerOff", "backAfterMs": 50},
        {"atMs": 5000, "do": "deleteProfile", "type": "3gpp2", "index": 0}]})"));
    const auto start = modem().now();
    const auto pass = [&](int atMost) {
        modem().passTime(milliseconds(atMost));
        return (modem().now() - start).count();
    };
    EXPECT_EQ(pass(1000), 200);
    EXPECT_STREQ(modem().profile(WDS_PROFILE_TYPE_3GPP2_V01, 0)->settings.user_id_3gpp2, "me");
    EXPECT_EQ(pass(800), 500);
    ASSERT_TRUE(modem().profile(k3gpp, 1));
    EXPECT_STREQ(modem().profile(k3gpp, 1)->settings.apn_name, "net");
    EXPECT_EQ(modem().profile(k3gpp, 1)->settings.apn_type_mask, 5U);
    EXPECT_EQ(pass(400), 900);
    EXPECT_FALSE(modem().isRunning());
    EXPECT_EQ(pass(50), 950);
    EXPECT_TRUE(modem().isRunning());
    EXPECT_FALSE(modem().profile(k3gpp, 1)) << "it was not persistent";
    EXPECT_EQ(create(3), "...");
    EXPECT_EQ(modem().profiles(k3gpp).size(), 2U);
    modem().factoryReset();
    EXPECT_EQ(pass(9000), 9950) << "nothing falls due";
}

TEST_F(ScenarioTest, FilesAreRefusedForWhatIsNotKnownToTheLastMember) {
    const struct {
        const char* text;
        const char* complaint;
    } kCases[] = {
        {"", "empty"},
        {" ", "parse error at line 1, column 2"},
        {"{\"seed\": 1,\n  \"faults\": [}", "line 2, column 14"},
        {"[]", "the file: not an object"},
        {R"({"sed": 1})", "sed: unknown"},
        {R"({"seed": 1, "seed": 2})", "seed: given twice"},
        {R"({"seed": -1})", "seed: not a whole number from 0 to 18446744073709551615"},
        {R"({"seed": 1.5})", "seed: not a whole number"},
        {R"({"seed": "1"})", "seed: not a whole number"},
        {R"({"neverStarts": 1})", "neverStarts: neither true nor false"},
        {R"({"capacity3gpp": 256})", "capacity3gpp: not a whole number from 0 to 255"},
        {R"({"startsAfterMs": 86400001})", "startsAfterMs: not a whole number"},
        {R"({"faults": {}})", "faults: not a list"},
        {R"({"faults": [{}, {"nth": 0}]})", "faults[1].nth: not a whole number from 1"},
        {R"({"faults": [{"request": "creat"}]})", "faults[0].request: not one of any, bind"},
        {R"({"faults": [{"lie": 3}]})", "faults[0].lie: not one of countTooLarge"},
        {R"({"faults": [{"probability": 1.01}]})", "faults[0].probability: not a number"},
        {R"({"faults": [{"probability": "x"}]})", "faults[0].probability: not a number"},
        {R"({"faults": [{"error": 4294967296}]})", "faults[0].error: not a whole number"},
        {R"({"faults": [{"transport": 1}]})", "faults[0].transport: not a whole number"},
        {R"({"faults": [{"then": [{"when": "idle"}]}]})", "faults[0].then[0].do: missing"},
        {R"({"events": [{"do": "powerOn", "index": 1}]})", "events[0].index: unknown"},
        {R"({"events": [{"do": "indication", "bytes": "0g"}]})", "events[0].bytes: not pairs"},
        {R"({"events": [{"do": "createProfile", "name": "aaaaaaaaaabbbbbbbbbbccccccccccddddddddddeeeeeeeeeef"}]})",
         "events[0].name: not a text of at most 50 bytes"},
    };
    for (const auto& c : kCases) {
        EXPECT_THAT(complaintAbout(c.text), AllOf(HasSubstr(path), HasSubstr(c.complaint)))
            << c.text;
    }
    EXPECT_THROW(readScenarioFile(path + "none"), ScenarioFileError);
    EXPECT_THROW(readScenarioFile(testing::TempDir()), ScenarioFileError);
}

TEST_F(ScenarioTest, TheJournalTellsEveryMessageAndEventButNoPassword) {
    ASSERT_TRUE(modem().startJournal(path));
    {
        TestClient client;
        client.registerForEverything();
        modem().addFault({.messageId = RAV_WDS_CREATE_PROFILE_REQ_V01, .delay = milliseconds(5)});
        wds_create_profile_req_msg_v01 request = describeCreate(k3gpp);
        request.settings.password_valid = 1;
        std::string("secret").copy(request.settings.password, 6);
        request.settings.apn_name_valid = 1;
        std::string("\"\xE9\n").copy(request.settings.apn_name, 3);
        wds_create_profile_resp_msg_v01 response;
        EXPECT_EQ(client.send(RAV_WDS_CREATE_PROFILE_REQ_V01, request, response), RAV_CLIENT_OK);
        modem().stop();
        EXPECT_TRUE(modem().waitForDeliveries(kPatience));
    }
    EXPECT_TRUE(modem().finishJournal());
    std::ifstream file(path);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line);
        EXPECT_THAT(line, Not(HasSubstr("secret")));
    }
    ASSERT_EQ(lines.size(), 12U);
    EXPECT_EQ(lines[0], R"({"us":0,"direction":"request","client":1,"message":"bind","id":175,)"
                        R"("members":{"subscription":1}})");
    EXPECT_EQ(lines[6],
              R"({"us":0,"direction":"request","client":1,"message":"create","id":39,"members":)"
              R"({"profile_type":0,"settings":{"apn_name":"\"é\n",)"
              R"("password":"***"}}})");
    EXPECT_EQ(lines[7],
              R"({"us":0,"direction":"indication","client":1,"message":"profileChanged","id":168,)"
              R"("members":{"type":0,"index":1,"change":1},)"
              R"("bytes":"100c00000000000100000001000000"})");
    EXPECT_EQ(lines[9],
              R"({"us":5000,"direction":"response","client":1,"message":"create","id":39,)"
              R"("transport":0,"result":0,"error":0,"members":{"profile":{"type":0,"index":1}}})");
    EXPECT_EQ(lines[10], R"({"us":5000,"direction":"event","what":"service down"})");
    EXPECT_EQ(lines[11], R"({"us":5000,"direction":"error","client":1,"what":"service gone"})");
    EXPECT_FALSE(modem().startJournal(path + "/none"));
}

}  // namespace
}  // namespace kiv::emulator
