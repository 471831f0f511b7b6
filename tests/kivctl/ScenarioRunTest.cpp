#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

#include "CommandLine.h"

namespace kiv::kivctl {
namespace {

class ScenarioRunTest : public testing::Test {
protected:
    ScenarioRunTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
    ~ScenarioRunTest() override {
        for (const std::string& file : {input, journal}) {
            std::remove(file.c_str());
        }
    }
    int provision(std::vector<const char*> options) {
        const std::string apns = std::filesystem::path(KIVCTL_TEST_DATA) / "carriers.xml";
        options.insert(options.begin(), {"kivctl", "provision", "--apns", apns.c_str(), "--all",
                                         "--show-secrets", "--journal"});
        Output output(stderr, stderr);
        return runKivctl(static_cast<int>(options.size()), options.data(), output);
    }
    /// What the run wrote, in a process of its own as the tool has: journal and other options.
    std::string journalOf(const std::vector<const char*>& options, int status, const char* told) {
        EXPECT_EXIT(std::exit(provision(options)), testing::ExitedWithCode(status), told);
        std::ostringstream text;
        text << std::ifstream(options[0]).rdbuf();
        return text.str();
    }
    std::string play(const std::string& text, int status) {
        std::ofstream(input) << text;
        return journalOf({journal.c_str(), "--scenario", input.c_str(), "--seed", "3"}, status, "");
    }

    // The same names in the processes that the test starts, which read what was written so far.
    const std::string base =
        testing::TempDir() + testing::UnitTest::GetInstance()->current_test_info()->name();
    const std::string input = base + "-input";
    const std::string journal = base + "-journal";
};

TEST_F(ScenarioRunTest, ARunEndsWithTheStatusOfWhatItFoundAndTheSameJournalEachTime) {
    const std::pair<const char*, int> kCases[] = {
        {"{}", kOk},
        {R"({"faults": [{"probability": 0.3, "drop": true}],
             "events": [{"atMs": 900, "do": "createProfile", "apn": "foreign"}]})",
         kFailed},
        {R"({"faults": [{"request": "create", "nth": 2, "then": [
             {"do": "powerOff", "silent": true, "backAfterMs": 1400}]}]})",
         kFailed},
        {R"({"seed": 7, "faults": [{"probability": 0.2, "delayMs": 999},
             {"probability": 0.3, "delayMs": 1000}, {"every": 1, "indications": "duplicated"}]})",
         kFailed},
        {R"({"neverStarts": true})", kModemUnreachable},
        {R"({"neverStarts": 1})", kCannotRead},
    };
    for (const auto& [text, status] : kCases) {
        SCOPED_TRACE(text);
        const std::string recorded = play(text, status);
        EXPECT_EQ(play(text, status), recorded);
    }
}

}  // namespace
}  // namespace kiv::kivctl
