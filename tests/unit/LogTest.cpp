#include <gmock/gmock.h>

#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <future>
#include <latch>
#include <thread>
#include <utility>

#include "ForkedChild.h"
#include "LocalLogBuffer.h"
#include "LoggedTest.h"
#include "ModemEmulator.h"

static timeval now;
static std::function<void()> onKeptLine = [] {};

extern "C" int gettimeofday(timeval* time, void*) {
    onKeptLine();
    *time = now;
    return 0;
}

namespace kiv {
namespace {

using testing::ElementsAre;
using testing::SizeIs;

void logAt(LogLevel level, const std::string& text) {
    LogWrapper::getInstance().log(level, kLogTag, "%s", text.c_str());
}

class LogTest : public test::LoggedTest {
protected:
    LogTest() {
        buffer.flush();
        LogWrapper::getInstance().setLogWriter(std::make_unique<AdbWriter>());
    }

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
    EXPECT_THAT(lines.back(), testing::EndsWith("%s 249"));
    buffer.flush();
    logAt(LogLevel::ERROR, "a");
    logAt(LogLevel::ERROR, "b");
    EXPECT_THAT(buffer.getLogs(), ElementsAre(testing::EndsWith("]a"), testing::EndsWith("]b")));
}

TEST_F(LogTest, DiagnosticLogKeepsTheMaskOfTheProcessesFirstLine) {
    auto& modem = emulator::ModemEmulator::getInstance();
    LogWrapper::getInstance().setLogWriter(std::make_unique<DiagWriter>());
    logAt(LogLevel::VERBOSE, "first");
    logAt(LogLevel::FATAL, std::string(600, 'x'));
    const auto lines = modem.takeDiagLines();
    ASSERT_THAT(lines, SizeIs(2));
    EXPECT_EQ(lines[1].mask, 1U);
    EXPECT_EQ(lines[1].text, "|KIV| " + std::string(511, 'x'));
    LogWrapper::getInstance().setLogWriter(nullptr);
    EXPECT_EQ(modem.diagUsers(), 0);
}

TEST_F(LogTest, TextsEndAtAZeroAndLinesAfter511Bytes) {
    const std::string withZero("a\0b", 3), fits(511, 'x'), tooLong(512, 'y');
    KIV_LOG_TEXT(EVENT, withZero);
    KIV_LOG_TEXT(EVENT, "", withZero, fits.substr(1), std::string_view("c"));
    KIV_LOG_TEXT(EVENT, fits);
    KIV_LOG_TEXT(EVENT, tooLong.c_str());
    const std::vector<std::string> expected = {"a", "a" + fits.substr(1), fits, tooLong.substr(1)};
    EXPECT_EQ(log.texts(), expected);
    for (size_t i = 0; i < expected.size(); ++i) {
        EXPECT_THAT(buffer.getLogs().at(i), testing::EndsWith("]" + expected[i]));
    }
}

TEST_F(LogTest, LocalBufferStampsEachLineWithItsOwnTime) {
    std::string stamps;
    for (const timeval time : {timeval{59, 7999}, {59, 7000}, {60, 7000}, {60, 999999}, {60, 0}}) {
        now = time;
        buffer.addLogWithTimestamp("");
        const std::string line = buffer.getLogs().back();
        stamps += line.substr(line.find(" [") - 7, 7);
    }
    EXPECT_EQ(stamps, ":59.007:59.007:00.007:00.999:00.000");
}

TEST_F(LogTest, LocalBufferFollowsTheTimeZone) {
    now = {3600, 0};
    std::string hours;
    for (const char* zone : {"UTC", "XYZ-2"}) {
        setenv("TZ", zone, 1);
        ++now.tv_sec;
        buffer.addLogWithTimestamp("");
        const std::string line = buffer.getLogs().back();
        hours += line.substr(line.find(':') - 2, 2);
    }
    unsetenv("TZ");
    EXPECT_EQ(hours, "0103");
}

/// Does for each line what the test wants, and must outlive that.
class TestWriter : public LogWriter {
public:
    explicit TestWriter(std::function<void()> onLine) : onLine(std::move(onLine)) {}
    ~TestWriter() override {
        EXPECT_TRUE(std::exchange(onLine, nullptr));
        ++destroyed;
    }
    void write(LogLevel, std::string, std::string) override {
        onLine();
        EXPECT_TRUE(onLine);
    }
    int convertPrio(LogLevel) override { return 0; }

    static inline std::atomic<int> destroyed{0};

private:
    std::function<void()> onLine;
};

void install(std::function<void()> onLine) {
    LogWrapper::getInstance().setLogWriter(std::make_unique<TestWriter>(std::move(onLine)));
}

TEST_F(LogTest, ReplacedWriterGoesWithItsLastLineAlsoIfOthersGoOn) {
    std::promise<void> begun, mayEnd, nextBegun, nextMayEnd;
    TestWriter::destroyed = 0;
    install([&begun, &mayEnd] {
        begun.set_value();
        mayEnd.get_future().wait();
    });
    std::thread slow([] { logAt(LogLevel::INFO, "slow"); });
    begun.get_future().wait();
    // Neither replacing it nor logging elsewhere waits for the slow line.
    install([&] {
        nextBegun.set_value();
        nextMayEnd.get_future().wait();
    });
    std::thread next([] { logAt(LogLevel::INFO, "next"); });
    nextBegun.get_future().wait();
    EXPECT_EQ(TestWriter::destroyed, 0);
    mayEnd.set_value();
    slow.join();
    EXPECT_EQ(TestWriter::destroyed, 1);
    nextMayEnd.set_value();
    next.join();
}

TEST_F(LogTest, WritersThatReplaceThemselvesOnManyThreadsAreDestroyedOnce) {
    TestWriter::destroyed = 0;
    std::atomic<int> installed{1};
    std::function<void()> replace;
    replace = [&replace, &installed] {
        ++installed;
        install(replace);
        std::this_thread::yield();  // others come while a line still has the replaced one
    };
    install(replace);
    std::latch begin(2);
    const auto writeLines = [&begin] {
        begin.arrive_and_wait();
        for (int i = 0; i < 20000; ++i) {
            logAt(LogLevel::INFO, "line");
        }
    };
    std::thread other(writeLines);
    writeLines();
    other.join();
    EXPECT_EQ(TestWriter::destroyed, installed - 1);
    LogWrapper::getInstance().setLogWriter(nullptr);
    EXPECT_EQ(TestWriter::destroyed, installed);
}

TEST_F(LogTest, ForkedChildLogsNothingAndWaitsForNoLockOfItsParent) {
    endLibraryInForkedChildren();
    std::promise<void> keeping, mayGoOn;
    onKeptLine = [&] {
        keeping.set_value();
        mayGoOn.get_future().wait();
    };
    std::thread other([] { logAt(LogLevel::ERROR, "other"); });
    keeping.get_future().wait();  // with the lock of the local buffer
    const pid_t child = fork();
    if (child == 0) {
        alarm(10);
        log.clear();
        logAt(LogLevel::ERROR, "child");
        LogWrapper::getInstance().setLogWriter(nullptr);
        // Not _exit: valgrind would look for what the other threads left.
        const char* const result = log.lines().empty() ? "true" : "false";
        execlp(result, result, nullptr);
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    mayGoOn.set_value();
    other.join();
    onKeptLine = [] {};
}

}  // namespace
}  // namespace kiv
