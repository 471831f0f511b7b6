#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>
#include <thread>

#include "LocalLogBuffer.h"
#include "LogCapture.h"
#include "LogWrapper.h"
#include "ModemEmulator.h"

namespace kiv {
namespace {

using emulator::ModemEmulator;
using test::LogCapture;
using testing::ElementsAre;
using testing::SizeIs;

void logAt(LogLevel level, const std::string& text) {
    LogWrapper::getInstance().log(level, kLogTag, "%s", text.c_str());
}

class LogTest : public testing::Test {
protected:
    void SetUp() override {
        LogWrapper::getInstance().setLogWriter(std::make_unique<AdbWriter>());
        LocalLogBuffer::getInstance().flush();
    }
    void TearDown() override { LogWrapper::getInstance().setLogWriter(nullptr); }

    LogCapture log;
};

TEST_F(LogTest, LevelsMapToPrioritiesMasksAndTheLocalBuffer) {
    const struct {
        int level;
        int priority;
        int mask;
        bool kept;
    } rows[] = {
        {0, ANDROID_LOG_VERBOSE, 1, false}, {1, ANDROID_LOG_DEBUG, 1, false},
        {2, ANDROID_LOG_INFO, 1, false},    {3, ANDROID_LOG_ERROR, 4, true},
        {4, ANDROID_LOG_FATAL, 16, false},  {5, ANDROID_LOG_INFO, 4, true},
        {6, ANDROID_LOG_INFO, 1, false},    {-1, ANDROID_LOG_INFO, 1, false},
    };
    DiagWriter diag;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.level);
        log.clear();
        LocalLogBuffer::getInstance().flush();
        const auto level = static_cast<LogLevel>(row.level);
        logAt(level, "line");
        ASSERT_THAT(log.lines(), SizeIs(1));
        EXPECT_EQ(log.lines()[0].priority, row.priority);
        EXPECT_EQ(log.lines()[0].tag, "KIV");
        EXPECT_EQ(log.lines()[0].text, "line");
        EXPECT_EQ(diag.convertPrio(level), row.mask);
        EXPECT_THAT(LocalLogBuffer::getInstance().getLogs(), SizeIs(row.kept ? 1 : 0));
    }
}

TEST_F(LogTest, LongMessageIsCutTo511BytesEverywhere) {
    logAt(LogLevel::EVENT, std::string(600, 'x'));
    EXPECT_THAT(log.texts(), ElementsAre(std::string(511, 'x')));
    EXPECT_THAT(LocalLogBuffer::getInstance().getLogs()[0],
                testing::EndsWith("[KIV]" + std::string(511, 'x')));
}

TEST_F(LogTest, WithoutWriterTheLocalBufferStillKeepsLines) {
    LogWrapper::getInstance().setLogWriter(nullptr);
    logAt(LogLevel::ERROR, "kept %s");
    EXPECT_THAT(log.lines(), SizeIs(0));
    const auto lines = LocalLogBuffer::getInstance().getLogs();
    ASSERT_THAT(lines, SizeIs(1));
    const std::regex format(R"(    \d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} \[KIV\]kept %s)");
    EXPECT_TRUE(std::regex_match(lines[0], format)) << lines[0];
}

TEST_F(LogTest, LocalBufferKeepsOneLineMoreThanItsCapacity) {
    for (int i = 0; i < 250; ++i) {
        logAt(LogLevel::ERROR, "line " + std::to_string(i));
    }
    const auto lines = LocalLogBuffer::getInstance().getLogs();
    ASSERT_THAT(lines, SizeIs(201));
    EXPECT_THAT(lines.front(), testing::EndsWith("]line 49"));
    EXPECT_THAT(lines.back(), testing::EndsWith("]line 249"));
    LocalLogBuffer::getInstance().flush();
    EXPECT_THAT(LocalLogBuffer::getInstance().getLogs(), SizeIs(0));
}

TEST_F(LogTest, DiagnosticLogKeepsTheMaskOfTheProcessesFirstLine) {
    auto& modem = ModemEmulator::getInstance();
    const int users = modem.diagUsers();
    LogWrapper::getInstance().setLogWriter(std::make_unique<DiagWriter>());
    EXPECT_EQ(modem.diagUsers(), users + 1);
    modem.takeDiagLines();
    logAt(LogLevel::VERBOSE, "first");
    logAt(LogLevel::FATAL, "second");
    const auto lines = modem.takeDiagLines();
    ASSERT_THAT(lines, SizeIs(2));
    EXPECT_EQ(lines[0].text, "|KIV| first");
    EXPECT_EQ(lines[1].text, "|KIV| second");
    EXPECT_EQ(lines[0].mask, 1U);
    EXPECT_EQ(lines[1].mask, 1U);
    LogWrapper::getInstance().setLogWriter(nullptr);
    EXPECT_EQ(modem.diagUsers(), users);
}

/// A writer that is slow to finish a line, to see what happens to it meanwhile.
class GatedWriter : public LogWriter {
public:
    struct State {
        std::mutex mutex;
        std::condition_variable changed;
        bool writing = false;
        bool open = false;
        bool destroyed = false;
    };
    explicit GatedWriter(State& state) : state(state) {}
    ~GatedWriter() override {
        std::lock_guard lock(state.mutex);
        state.destroyed = true;
    }
    void write(LogLevel, std::string, std::string) override {
        std::unique_lock lock(state.mutex);
        state.writing = true;
        state.changed.notify_all();
        state.changed.wait(lock, [this] { return state.open; });
        EXPECT_FALSE(state.destroyed);
    }
    int convertPrio(LogLevel) override { return 0; }

private:
    State& state;
};

TEST_F(LogTest, WriterReplacedWhileALineIsWrittenLivesUntilTheLineIsDone) {
    GatedWriter::State state;
    LogWrapper::getInstance().setLogWriter(std::make_unique<GatedWriter>(state));
    std::thread other([] { logAt(LogLevel::INFO, "slow"); });
    {
        std::unique_lock lock(state.mutex);
        state.changed.wait(lock, [&] { return state.writing; });
    }
    // Neither replacing it nor logging elsewhere waits for the slow line.
    LogWrapper::getInstance().setLogWriter(std::make_unique<AdbWriter>());
    logAt(LogLevel::INFO, "quick");
    EXPECT_TRUE(log.contains("quick"));
    {
        std::lock_guard lock(state.mutex);
        EXPECT_FALSE(state.destroyed);
        state.open = true;
        state.changed.notify_all();
    }
    other.join();
    EXPECT_TRUE(state.destroyed);
}

}  // namespace
}  // namespace kiv
