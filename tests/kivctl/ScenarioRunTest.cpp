#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "CommandLine.h"

namespace kiv::kivctl {
namespace {

class ScenarioRunTest : public testing::Test {
protected:
    ScenarioRunTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
    ~ScenarioRunTest() override {
        std::remove(scenario.c_str());
        std::remove(journal.c_str());
    }
    int provision(const std::string& text) {
        std::ofstream(scenario) << text;
        const std::string apns =
            std::filesystem::path(__FILE__).parent_path() / "data" / "carriers.xml";
        const char* const arguments[] = {"kivctl", "provision",  "--apns",         apns.c_str(),
                                         "--all",  "--scenario", scenario.c_str(), "--seed",
                                         "3",      "--journal",  journal.c_str()};
        std::FILE* const out = std::tmpfile();
        Output output(out, out);
        const int status = runKivctl(std::size(arguments), arguments, output);
        std::fclose(out);
        return status;
    }
    /// What the run wrote, in a process of its own as the tool has.
    std::string journalOf(const std::string& text, int status) {
        EXPECT_EXIT(std::exit(provision(text)), testing::ExitedWithCode(status), "") << text;
        std::ostringstream written;
        written << std::ifstream(journal).rdbuf();
        return written.str();
    }

    // The same names in the processes that the test starts.
    const std::string scenario = testing::TempDir() + "kivctl-played";
    const std::string journal = testing::TempDir() + "kivctl-journal";
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
        {R"({"neverStarts": true})", kModemUnreachable},
        {R"({"neverStarts": 1})", kCannotRead},
    };
    for (const auto& [text, status] : kCases) {
        EXPECT_EQ(journalOf(text, status), journalOf(text, status));
    }
}

}  // namespace
}  // namespace kiv::kivctl
