#ifndef TESTS_SUPPORT_LOGGEDTEST_H
#define TESTS_SUPPORT_LOGGEDTEST_H

#include <gtest/gtest.h>

#include <memory>

#include "LogCapture.h"
#include "LogWrapper.h"

namespace kiv::test {

/// What the library logs goes to the Android log, and from there to the test.
class LoggedTest : public testing::Test {
protected:
    LoggedTest() { LogWrapper::getInstance().setLogWriter(std::make_unique<AdbWriter>()); }
    ~LoggedTest() override { LogWrapper::getInstance().setLogWriter(nullptr); }

    LogCapture log;
};

}  // namespace kiv::test

#endif
