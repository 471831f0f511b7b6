#include "StateFile.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <span>

#include "ModemTest.h"
#include "Settings.h"

namespace kiv::emulator {
namespace {

using testing::ElementsAre;
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
    for (const Setting& member : allSettings()) {
        if (!member.belongsTo(type) || random() % 3 == 0) {
            continue;
        }
        std::vector<std::byte> bytes(member.isText ? random() % member.size : member.size);
        const unsigned highest = random() % 2 == 0 ? 0x7f : 0xff;
        for (std::byte& byte : bytes) {
            byte = static_cast<std::byte>(1 + random() % highest);
        }
        member.set(settings, bytes);
    }
    return settings;
}

bool areEqual(const ProfileTable& left, const ProfileTable& right) {
    const auto areSame = [](const auto& one, const auto& other) {
        const Profile& a = one.second;
        const Profile& b = other.second;
        return a.index == b.index && a.persistent == b.persistent &&
               std::memcmp(&a.settings, &b.settings, sizeof(a.settings)) == 0;
    };
    return left.getCapacity() == right.getCapacity() &&
           std::ranges::equal(left.all(), right.all(), areSame);
}

TEST_F(StateFileTest, RandomTablesSurviveTheRoundTrip) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    for (const unsigned capacity : {0, 1, 7, 15, 255}) {
        ProfileTables tables;
        for (ProfileTable* table : {&tables.table3gpp, &tables.table3gpp2}) {
            ASSERT_TRUE(table->setCapacity(capacity));
            for (unsigned i = 0; i < 2 * capacity; ++i) {
                table->insert(static_cast<uint8_t>(random()),
                              randomSettings(table->technology(), random), random() % 2 == 0);
            }
        }
        writeStateFile(path, tables);
        const ProfileTables read = readStateFile(path);
        EXPECT_TRUE(areEqual(tables.table3gpp, read.table3gpp)) << capacity;
        EXPECT_TRUE(areEqual(tables.table3gpp2, read.table3gpp2)) << capacity;
    }
    const auto permissions = std::filesystem::status(path).permissions();
    EXPECT_EQ(static_cast<unsigned>(permissions), 0600U) << "passwords are in it";
}

std::string profileText(const std::string& settings) {
    return R"({"index":1,"persistent":true,"settings":)" + settings + "}";
}

std::string stateText(const std::string& profiles, const std::string& capacity = "2") {
    return R"({"format":"kivr modem state","version":1,"tables":{"3gpp":{"capacity":)" + capacity +
           R"(,"profiles":[)" + profiles + R"(]},"3gpp2":{"capacity":0,"profiles":[]}}})";
}

TEST_F(StateFileTest, ADamagedTextIsRefusedWithPlaceAndReason) {
    const std::string good = stateText(profileText(R"({"apn_name":{"hex":"c3a9"}})"));
    const std::string place = "f: tables.3gpp.profiles[0].settings.";
    const std::pair<std::string, std::string> kCases[] = {
        {good, ""},
        {"{\n \"a\":1,\"b\":2,\"a\":3}", "f:2:16: 'a' is given twice"},
        {std::string(5000, '['), "f:1:10: nested too deeply"},
        {stateText(profileText("{}") + "," + profileText("{}")),
         "f: tables.3gpp.profiles[1].index: another profile has 1"},
        {stateText(profileText(R"({"apn_name":")" + std::string(151, 'a') + "\"}")),
         place + "apn_name: not a text of at most 150 bytes"},
        {stateText(profileText(R"({"pdp_type":4294967296})")),
         place + "pdp_type: not a whole number from 0 to 4294967295"},
    };
    for (const auto& [text, message] : kCases) {
        EXPECT_EQ(errorOf(text), message) << text;
    }
    EXPECT_THAT(errorOf("\"\xff\""), StartsWith("f:1:2: ")) << "the parser has the words";
    for (size_t length = 0; length < good.size(); ++length) {
        EXPECT_THAT(errorOf(good.substr(0, length)), StartsWith("f:1:")) << length;
    }
}

TEST_F(StateFileTest, ARefusedFileAndTheTablesStayAsTheyAre) {
    modem().stop();
    modem().factoryReset();
    modem().installFactoryProfiles();
    ASSERT_TRUE(modem().saveState(path, error)) << error;
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
    EXPECT_EQ(error, path + ": tables.3gpp2.profiles[0].index: not a whole number from 0 to 254");
    EXPECT_EQ(contents(), damaged);
    EXPECT_TRUE(modem().profiles(k3gpp).empty());

    std::filesystem::resize_file(path, size_t{5} << 20);
    EXPECT_FALSE(modem().loadState(path, error));
    EXPECT_EQ(error, path + ": longer than 4194304 bytes");
    EXPECT_FALSE(modem().loadState(folder, error));
    EXPECT_EQ(error, folder + ": not a regular file");
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
    std::vector<std::string> steps;
    writeStateFile(path, tablesOf(150), [&](const char* step) {
        steps.emplace_back(step);
        return 0;
    });
    const std::string after = contents();
    ASSERT_THAT(steps, ElementsAre("create", "write", "write", "write", "sync", "close", "rename",
                                   "open its folder", "sync its folder"));
    const auto writeUntil = [&](size_t last, bool isCrash) {
        size_t step = 0;
        writeStateFile(path, tablesOf(150), [&](const char*) {
            if (step++ != last) {
                return 0;
            }
            return isCrash ? (_exit(7), 0) : ENOSPC;
        });
    };
    for (size_t last = 0; last < steps.size(); ++last) {
        SCOPED_TRACE(steps[last]);
        for (const bool isCrash : {false, true}) {
            writeStateFile(path, tablesOf(0));
            const std::string before = contents();
            const size_t files = fileCount();
            if (isCrash) {
                EXPECT_EXIT(writeUntil(last, true), testing::ExitedWithCode(7), "");
            } else {
                EXPECT_THROW(writeUntil(last, false), StateFileError);
                EXPECT_EQ(fileCount(), files) << "no litter";
            }
            EXPECT_EQ(contents(), last <= 6 ? before : after);
        }
    }
}

}  // namespace
}  // namespace kiv::emulator
