#include "StateFile.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <span>

#include "ModemTest.h"
#include "ProfileSettings.h"

namespace kiv::emulator {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

/// A folder of its own for each test.
class StateFileTest : public testing::Test {
protected:
    StateFileTest() { std::filesystem::create_directory(folder); }
    ~StateFileTest() override { std::filesystem::remove_all(folder); }

    std::string contents() const {
        std::ifstream stream(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }
    size_t fileCount() const {
        const std::filesystem::directory_iterator files(folder);
        return static_cast<size_t>(std::distance(begin(files), end(files)));
    }

    const std::string folder = testing::TempDir() + "kivr-state-" + std::to_string(getpid());
    const std::string path = folder + "/state.json";
    std::string error;
};

std::string errorOf(const std::string& text) {
    try {
        parseState("f", text);
        return "";
    } catch (const StateFileError& refused) {
        return refused.what();
    }
}

/// Settings in which any member may be present, with any value, in any bytes.
wds_profile_settings_type_v01 randomSettings(wds_profile_type_enum_v01 type, std::mt19937& random) {
    wds_profile_settings_type_v01 settings{};
    for (const SettingsMember& member : settingsMembers()) {
        if (!member.belongsTo(type) || random() % 3 == 0) {
            continue;
        }
        std::vector<std::byte> bytes(member.isText ? random() % member.size : member.size);
        const bool isAscii = random() % 2 == 0;
        for (std::byte& byte : bytes) {
            byte = static_cast<std::byte>(isAscii && member.isText ? 0x20 + random() % 0x5f
                                                                   : 1 + random() % 0xff);
        }
        member.set(settings, bytes);
    }
    return settings;
}

void expectEqual(const ProfileTable& left, const ProfileTable& right) {
    EXPECT_EQ(left.getCapacity(), right.getCapacity());
    ASSERT_EQ(left.all().size(), right.all().size());
    for (const auto& [index, profile] : left.all()) {
        const Profile* const other = right.find(index);
        ASSERT_TRUE(other) << unsigned{index};
        EXPECT_EQ(profile.type, other->type);
        EXPECT_EQ(profile.index, other->index);
        EXPECT_EQ(profile.persistent, other->persistent);
        EXPECT_EQ(std::memcmp(&profile.settings, &other->settings, sizeof(profile.settings)), 0);
    }
}

TEST_F(StateFileTest, RandomTablesSurviveTheRoundTrip) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    for (int round = 0; round < 40 && !HasFailure(); ++round) {
        ProfileTables tables;
        for (ProfileTable* table : {&tables.table3gpp, &tables.table3gpp2}) {
            const unsigned capacity = random() % 8 == 0 ? 255 : random() % 16;
            ASSERT_TRUE(table->setCapacity(capacity));
            for (unsigned i = random() % 2 == 0 ? 0 : capacity; i < 2 * capacity; ++i) {
                table->insert(static_cast<uint8_t>(random()),
                              randomSettings(table->technology(), random), random() % 2 == 0);
            }
        }
        writeStateFile(path, tables);
        const ProfileTables read = readStateFile(path);
        expectEqual(tables.table3gpp, read.table3gpp);
        expectEqual(tables.table3gpp2, read.table3gpp2);
    }
    struct stat status {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600U) << "passwords are in it";
}

std::string tablesText(const std::string& table3gpp) {
    return R"({"format":"kivr modem state","version":1,"tables":{"3gpp":)" + table3gpp +
           R"(,"3gpp2":{"capacity":0,"profiles":[]}}})";
}

std::string profileText(const std::string& settings, const std::string& index = "1") {
    return R"({"index":)" + index + R"(,"persistent":true,"settings":)" + settings + "}";
}

std::string stateText(const std::string& profiles, const std::string& capacity = "2") {
    return tablesText(R"({"capacity":)" + capacity + R"(,"profiles":[)" + profiles + "]}");
}

TEST_F(StateFileTest, ADamagedTextIsRefusedWithPlaceAndReason) {
    const std::string good = stateText(profileText(R"({"apn_name":{"hex":"c3a9"}})"));
    const std::string place = "f: /tables/3gpp/profiles/0/settings/";
    const std::pair<std::string, std::string> kCases[] = {
        {good, ""},
        {"[1]", "f: /: not an object"},
        {"{}", "f: /: 'format' is missing"},
        {R"({"format":"other"})", "f: /format: not 'kivr modem state'"},
        {R"({"format":"kivr modem state","version":2})", "f: /version: 2 is not from 1 to 1"},
        {"{\n \"a\":1,\"b\":2,\"a\":3}", "f:2:16: 'a' appears twice"},
        {std::string(5000, '['), "f:1:10: nested too deeply"},
        {tablesText(R"({"capacity":256,"profiles":[]})"),
         "f: /tables/3gpp/capacity: 256 is not from 0 to 255"},
        {tablesText(R"({"capacity":1})"), "f: /tables/3gpp: 'profiles' is missing"},
        {tablesText(R"({"capacity":1,"profiles":{}})"), "f: /tables/3gpp/profiles: not a list"},
        {tablesText(R"({"capacity":1,"profiles":[],"\u0007":1})"),
         "f: /tables/3gpp: '?' is unknown"},
        {stateText(profileText("{}") + "," + profileText("{}", "2"), "1"),
         "f: /tables/3gpp/profiles: 2 are more than the capacity, 1"},
        {stateText(profileText("{}") + "," + profileText("{}")),
         "f: /tables/3gpp/profiles/1/index: another profile has 1"},
        {stateText(profileText("{}", "0")),
         "f: /tables/3gpp/profiles/0/index: 0 is not from 1 to 255"},
        {stateText(profileText("{}", "1.0")),
         "f: /tables/3gpp/profiles/0/index: not a whole number from 0"},
        {stateText(R"({"index":1,"persistent":1,"settings":{}})"),
         "f: /tables/3gpp/profiles/0/persistent: neither true nor false"},
        {stateText(profileText(R"({"apn_class_3gpp2":1})")),
         "f: /tables/3gpp/profiles/0/settings: 'apn_class_3gpp2' is unknown"},
        {stateText(profileText(R"({"apn_name":7})")), place + "apn_name: not a text"},
        {stateText(profileText(R"({"apn_name":")" + std::string(151, 'a') + "\"}")),
         place + "apn_name: 151 bytes are more than 150"},
        {stateText(profileText(R"({"apn_name":"a\u0000b"})")),
         place + "apn_name: has a zero byte in it"},
        {stateText(profileText(R"({"password":{"hex":"c3a"}})")),
         place + "password/hex: not pairs of the digits 0-9 and a-f"},
        {stateText(profileText(R"({"password":{"hex":"0G"}})")),
         place + "password/hex: not pairs of the digits 0-9 and a-f"},
        {stateText(profileText(R"({"pdp_type":4294967296})")),
         place + "pdp_type: 4294967296 is not from 0 to 4294967295"},
        {stateText(profileText(R"({"pdp_type":-1})")),
         place + "pdp_type: not a whole number from 0"},
    };
    for (const auto& [text, message] : kCases) {
        EXPECT_EQ(errorOf(text), message) << text;
    }
    // Where the text is no JSON, the parser has the words.
    EXPECT_THAT(errorOf("{\n\"a\";"), StartsWith("f:2:4: syntax error"));
    EXPECT_THAT(errorOf("[1e999]"), StartsWith("f:1:7: "));
    EXPECT_THAT(errorOf("\"\xff\""), StartsWith("f:1:2: "));
    for (size_t length = 0; length < good.size(); ++length) {
        EXPECT_THAT(errorOf(good.substr(0, length)), StartsWith("f:1:")) << length;
    }
}

TEST_F(StateFileTest, ARefusedFileAndTheTablesStayAsTheyAre) {
    modem().stop();
    modem().factoryReset();
    modem().installFactoryProfiles();
    modem().createProfile(WDS_PROFILE_TYPE_3GPP_V01, {}, false);
    ASSERT_TRUE(modem().saveState(path, error)) << error;
    ASSERT_TRUE(modem().loadState(path, error)) << error;
    EXPECT_EQ(modem().profiles(WDS_PROFILE_TYPE_3GPP_V01).size(), 2U)
        << "what is not persistent is dropped, as by a restart";
    EXPECT_EQ(modem().profiles(WDS_PROFILE_TYPE_3GPP2_V01).size(), 1U);
    modem().start();
    EXPECT_FALSE(modem().loadState(path, error));
    EXPECT_EQ(error, path + ": not loaded, the modem is on");
    modem().stop();

    // The second table is the one that is damaged.
    std::string damaged = contents();
    damaged.replace(damaged.rfind("\"index\": 0"), 10, "\"index\": 255");
    std::ofstream(path, std::ios::binary) << damaged;
    modem().factoryReset();
    EXPECT_FALSE(modem().loadState(path, error));
    EXPECT_EQ(error, path + ": /tables/3gpp2/profiles/0/index: 255 is not from 0 to 254");
    EXPECT_EQ(contents(), damaged);
    EXPECT_TRUE(modem().profiles(WDS_PROFILE_TYPE_3GPP_V01).empty());

    std::filesystem::resize_file(path, size_t{5} << 20);
    EXPECT_FALSE(modem().loadState(path, error));
    EXPECT_EQ(error, path + ": longer than 4194304 bytes");
    EXPECT_FALSE(modem().loadState(folder, error));
    EXPECT_EQ(error, folder + ": not a regular file");
    EXPECT_FALSE(modem().loadState(folder + "/none", error));
    EXPECT_EQ(error, folder + "/none: can't open: No such file or directory");
    modem().createProfile(WDS_PROFILE_TYPE_3GPP_V01, {}, true);
    modem().setCapacity(WDS_PROFILE_TYPE_3GPP_V01, 0);
    EXPECT_FALSE(modem().saveState(path, error));
    EXPECT_THAT(error, HasSubstr(": not written, a table holds 1 profiles"));
}

/// A table whose file takes several writes.
ProfileTables tablesOf(unsigned count) {
    ProfileTables tables;
    for (unsigned i = 0; i < count; ++i) {
        tables.table3gpp.create({}, true);
    }
    return tables;
}

TEST_F(StateFileTest, ACrashOrAFailureAtAnyStepLeavesTheOldFileOrTheNew) {
    writeStateFile(path, tablesOf(0));
    const std::string before = contents();
    std::vector<std::string> steps;
    writeStateFile(path, tablesOf(150), [&](const char* step) {
        steps.emplace_back(step);
        return 0;
    });
    const std::string after = contents();
    ASSERT_THAT(steps, ElementsAre("create", "write", "write", "write", "sync", "close", "rename",
                                   "open its folder", "sync its folder"));
    for (size_t last = 0; last < steps.size(); ++last) {
        // A failure, which is told and leaves no litter.
        writeStateFile(path, tablesOf(0));
        size_t step = 0;
        try {
            writeStateFile(path, tablesOf(150),
                           [&](const char*) { return step++ == last ? ENOSPC : 0; });
            ADD_FAILURE() << steps[last];
        } catch (const StateFileError& failed) {
            EXPECT_EQ(failed.what(), path + ": can't " + steps[last] + ": No space left on device");
        }
        EXPECT_EQ(contents(), last <= 6 ? before : after) << steps[last];
        EXPECT_EQ(fileCount(), 1U) << steps[last];
    }
    for (size_t last = 0; last < steps.size(); ++last) {
        writeStateFile(path, tablesOf(0));
        const pid_t child = fork();
        if (child == 0) {
            size_t step = 0;
            writeStateFile(path, tablesOf(150),
                           [&](const char*) { return step++ == last ? (_exit(7), 0) : 0; });
            _exit(0);
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 7) << steps[last];
        EXPECT_EQ(contents(), last <= 6 ? before : after) << steps[last];
    }
}

}  // namespace
}  // namespace kiv::emulator
