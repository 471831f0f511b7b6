#include <gmock/gmock.h>

#include <atomic>
#include <future>
#include <thread>

#include "LocalLogBuffer.h"
#include "LoggedTest.h"
#include "ModemEmulator.h"

namespace kiv {
namespace {

using testing::ElementsAre;
using testing::SizeIs;

void logAt(LogLevel level, const std::string& text) {
    LogWrapper::getInstance().log(level, kLogTag, "%s", text.c_str());
}

class LogTest : public test::LoggedTest {
protected:
    LogTest() { buffer.flush(); }

    LocalLogBuffer& buffer = LocalLogBuffer::getInstance();
};

TEST_F(LogTest, LevelsMapToPrioritiesMasksAndTheLocalBuffer) {
    const struct {
        int level, priority, mask;
        bool kept;
    } rows[] = {
        {0, ANDROID_LOG_VERBOSE, 1, false}, {1, ANDROID_LOG_DEBUG, 1, false},
        {2, ANDROID_LOG_INFO, 1, false},    {3, ANDROID_LOG_ERROR, 4, true},
        {4, ANDROID_LOG_FATAL, 16, false},  {5, ANDROID_LOG_INFO, 4, true},
    };
    for (const auto& row : rows) {
        log.clear();
        buffer.flush();
        const auto level = static_cast<LogLevel>(row.level);
        logAt(level, "line");
        ASSERT_THAT(log.texts(), ElementsAre("line"));
        EXPECT_EQ(log.lines()[0].priority, row.priority);
        EXPECT_EQ(DiagWriter().convertPrio(level), row.mask);
        EXPECT_THAT(buffer.getLogs(), SizeIs(row.kept ? 1 : 0));
    }
}

TEST_F(LogTest, LocalBufferKeepsOneLineMoreThanItsCapacityAlsoWithoutAWriter) {
    LogWrapper::getInstance().setLogWriter(nullptr);
    for (int i = 0; i < 250; ++i) {
        logAt(LogLevel::ERROR, "%s " + std::to_string(i));
    }
    EXPECT_THAT(log.lines(), SizeIs(0));
    const auto lines = buffer.getLogs();
    ASSERT_THAT(lines, SizeIs(201));
    EXPECT_THAT(lines.front(),
                testing::MatchesRegex("    [0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}"
                                      "\\.[0-9]{3} \\[KIV\\]%s 49"));
}

TEST_F(LogTest, DiagnosticLogKeepsTheMaskOfTheProcessesFirstLine) {
    auto& modem = emulator::ModemEmulator::getInstance();
    LogWrapper::getInstance().setLogWriter(std::make_unique<DiagWriter>());
    logAt(LogLevel::VERBOSE, "first");
    logAt(LogLevel::FATAL, std::string(600, 'x'));
    KIV_LOG_TEXT(INFO, "", std::string(600, 'y'));
    const auto lines = modem.takeDiagLines();
    ASSERT_THAT(lines, SizeIs(3));
    EXPECT_EQ(lines[1].mask, 1U);
    EXPECT_EQ(lines[1].text, "|KIV| " + std::string(511, 'x'));
    EXPECT_EQ(lines[2].text, "|KIV| " + std::string(511, 'y'));
    LogWrapper::getInstance().setLogWriter(nullptr);
    EXPECT_EQ(modem.diagUsers(), 0);
}

struct SlowLine {
    std::promise<void> begun;
    std::promise<void> mayEnd;
    std::atomic<bool> isWriterGone = false;
};

/// Holds back a line, to see what happens to its writer meanwhile.
class SlowWriter : public LogWriter {
public:
    explicit SlowWriter(SlowLine& line) : line(line) {}
    ~SlowWriter() override { line.isWriterGone = true; }
    void write(LogLevel, std::string, std::string) override {
        line.begun.set_value();
        line.mayEnd.get_future().wait();
    }
    int convertPrio(LogLevel) override { return 0; }

private:
    SlowLine& line;
};

TEST_F(LogTest, WriterReplacedWhileALineIsWrittenLivesUntilTheLineIsDone) {
    SlowLine line;
    LogWrapper::getInstance().setLogWriter(std::make_unique<SlowWriter>(line));
    std::thread other([] { logAt(LogLevel::INFO, "slow"); });
    line.begun.get_future().wait();
    // Neither replacing it nor logging elsewhere waits for the slow line.
    LogWrapper::getInstance().setLogWriter(std::make_unique<AdbWriter>());
    logAt(LogLevel::INFO, "quick");
    EXPECT_TRUE(log.contains("quick"));
    EXPECT_FALSE(line.isWriterGone);
    line.mayEnd.set_value();
    other.join();
    EXPECT_TRUE(line.isWriterGone);
}

}  // namespace
}  // namespace kiv
