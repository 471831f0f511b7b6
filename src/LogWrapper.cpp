#include "LogWrapper.h"

#include <android/log.h>

#include <array>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <new>
#include <string_view>
#include <utility>

#include "ForkedChild.h"
#include "LocalLogBuffer.h"
#include "NeverDestroyed.h"
#include "diag_log.h"

namespace kiv {

namespace {

constexpr size_t kMessageLimit = 512;  // with the terminating zero

constexpr uint32_t kDiagMaskAll = 31;

/// What the output calls the level, of values in the order of the levels.
int byLevel(LogLevel level, const std::array<int, 6>& values, int otherwise) {
    const auto number = static_cast<size_t>(level);
    return number < values.size() ? values[number] : otherwise;
}

/// Takes the writer down at exit, so that the diagnostic log is closed; the log itself stays.
struct WriterRemover {
    ~WriterRemover() { LogWrapper::getInstance().setLogWriter(nullptr); }
};

}  // namespace

LogWrapper& LogWrapper::getInstance() {
    static NeverDestroyed<LogWrapper> instance;
    static WriterRemover remover;
    return instance.get();
}

void LogWrapper::setLogWriter(std::unique_ptr<LogWriter> newWriter) {
    if (isForkedChild()) {
        return;
    }
    std::shared_ptr<LogWriter> replaced(std::move(newWriter));
    {
        std::lock_guard lock(mutex);
        writer.swap(replaced);
    }
    // Destroyed here, with no lock held, unless a line still has a share.
}

void LogWrapper::log(LogLevel level, const char* tag, const char* format, ...) {
    std::array<char, kMessageLimit> message;
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(message.data(), message.size(), format, arguments);
    va_end(arguments);
    write(level, tag, length < 0 ? "" : message.data());
}

void LogWrapper::logText(LogLevel level, const char* tag,
                         std::initializer_list<std::string_view> texts) {
    std::array<char, kMessageLimit> message;
    size_t length = 0;
    for (const std::string_view text : texts) {
        const std::string_view printed = text.substr(0, text.find('\0'));
        length += printed.copy(message.data() + length, message.size() - 1 - length);
    }
    message[length] = '\0';
    write(level, tag, message.data());
}

void LogWrapper::write(LogLevel level, const char* tag, const char* message) {
    if (isForkedChild()) {
        return;
    }
    // The line's own share: a writer that is replaced meanwhile is destroyed with its last line.
    const std::shared_ptr<LogWriter> current = getLogWriter();
    try {
        if (current) {
            current->writeText(level, tag, message);
        }
        if (level == LogLevel::ERROR || level == LogLevel::EVENT) {
            LocalLogBuffer::getInstance().addLogWithTimestamp(message);
        }
    } catch (const std::bad_alloc&) {
        // A line is not worth the process: destructors log, and those who handle other failures.
    }
}

std::shared_ptr<LogWriter> LogWrapper::getLogWriter() {
    std::lock_guard lock(mutex);
    return writer;
}

void AdbWriter::write(LogLevel level, std::string tag, std::string msg) {
    writeText(level, tag.c_str(), msg.c_str());
}

void AdbWriter::writeText(LogLevel level, const char* tag, const char* msg) {
    __android_log_print(convertPrio(level), tag, "%s", msg);
}

int AdbWriter::convertPrio(LogLevel level) {
    return byLevel(level,
                   {ANDROID_LOG_VERBOSE, ANDROID_LOG_DEBUG, ANDROID_LOG_INFO, ANDROID_LOG_ERROR,
                    ANDROID_LOG_FATAL, ANDROID_LOG_INFO},
                   ANDROID_LOG_INFO);
}

DiagWriter::DiagWriter() { Diag_LSM_Init(nullptr); }

DiagWriter::~DiagWriter() { Diag_LSM_DeInit(); }

void DiagWriter::write(LogLevel level, std::string tag, std::string msg) {
    writeText(level, tag.c_str(), msg.c_str());
}

void DiagWriter::writeText(LogLevel level, const char* tag, const char* msg) {
    const auto mask = static_cast<uint32_t>(convertPrio(level));
    if ((mask & kDiagMaskAll) == 0) {
        return;
    }
    // Meant: every later line goes out with the mask of the first, whatever its own level.
    static const diag_msg_descriptor descriptor = {116, 63, mask, "|%s| %s", "src/LocalLogBuffer"};
    msg_sprintf(&descriptor, tag, msg);
}

int DiagWriter::convertPrio(LogLevel level) { return byLevel(level, {1, 1, 1, 4, 16, 4}, 1); }

}  // namespace kiv
