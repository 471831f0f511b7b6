#ifndef TESTS_SUPPORT_LOGGEDTEST_H
#define TESTS_SUPPORT_LOGGEDTEST_H

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "LogCapture.h"
#include "LogWrapper.h"

namespace kiv::test {

/// Writes to the Android log, with the level for a tag.
class LevelWriter final : public LogWriter {
public:
    void write(LogLevel level, std::string /*tag*/, std::string text) override {
        static constexpr const char* kNames[] = {"VERBOSE", "DEBUG", "INFO",
                                                 "ERROR",   "FATAL", "EVENT"};
        __android_log_write(ANDROID_LOG_ERROR, kNames[convertPrio(level)], text.c_str());
    }
    int convertPrio(LogLevel level) override { return static_cast<int>(level); }
};

/// What the library logs goes to the Android log, and from there to the test.
class LoggedTest : public testing::Test {
protected:
    LoggedTest() { LogWrapper::getInstance().setLogWriter(std::make_unique<LevelWriter>()); }
    ~LoggedTest() override { LogWrapper::getInstance().setLogWriter(nullptr); }

    /// The lines since the last call but those of level VERBOSE, each behind its level.
    std::vector<std::string> takeLines() {
        std::vector<std::string> taken;
        for (const LogCapture::Line& line : log.lines()) {
            if (line.tag != "VERBOSE") {
                taken.push_back(line.tag + " " + line.text);
            }
        }
        log.clear();
        return taken;
    }

    LogCapture log;
};

}  // namespace kiv::test

#endif
