#include "LogWrapper.h"

#include <android/log.h>

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>
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

constexpr uint32_t kDiagMaskLow = 1;
constexpr uint32_t kDiagMaskHigh = 4;
constexpr uint32_t kDiagMaskFatal = 16;
constexpr uint32_t kDiagMaskAll = 31;

using MessageBuffer = std::array<char, kMessageLimit>;

/// Puts the texts one behind the other, with room left for the terminating zero; returns the
/// length.
size_t join(MessageBuffer& buffer, std::initializer_list<std::string_view> texts, bool cutAtZero) {
    size_t length = 0;
    for (const std::string_view text : texts) {
        const std::string_view part = cutAtZero ? text.substr(0, text.find('\0')) : text;
        length += part.copy(buffer.data() + length, buffer.size() - 1 - length);
    }
    return length;
}

/// Takes the writer down at exit, so that the diagnostic log is closed; the log itself stays.
struct WriterRemover {
    ~WriterRemover() { LogWrapper::getInstance().setLogWriter(nullptr); }
};

}  // namespace

// All threads see the atomic operations here in one order. A line counts itself, on one of two
// sides, before it looks for the writer. If the one it finds is replaced later, it has thus been
// counted since before that. So nobody uses a replaced writer any more as soon as each side has
// been seen empty once since the replacement; both need not be empty at the same time. So that
// lines which keep coming don't put that off, they count themselves on the other side than the one
// that is to be seen empty next. Whoever leaves a side empty looks whether replaced writers can go,
// and so does whoever replaces one.
class LogWrapper::LineInHand {
public:
    explicit LineInHand(LogWrapper& wrapper)
        : wrapper(wrapper), linesInHand(wrapper.linesInHand[wrapper.side]) {
        ++linesInHand;
    }
    ~LineInHand() {
        if (--linesInHand == 0 && wrapper.hasReplaced) {
            wrapper.destroyUnused();
        }
    }
    LineInHand(const LineInHand&) = delete;
    LineInHand& operator=(const LineInHand&) = delete;

private:
    LogWrapper& wrapper;
    std::atomic<size_t>& linesInHand;
};

LogWrapper& LogWrapper::getInstance() {
    static NeverDestroyed<LogWrapper> instance;
    static WriterRemover remover;
    return instance.get();
}

void LogWrapper::setLogWriter(std::unique_ptr<LogWriter> newWriter) {
    if (isForkedChild()) {
        return;
    }
    std::unique_ptr<LogWriter> previous(writer.exchange(newWriter.release()));
    if (previous) {
        std::lock_guard lock(replacedMutex);
        prepend(std::move(previous), replaced);
        hasReplaced = true;
    }
    destroyUnused();
}

void LogWrapper::prepend(std::unique_ptr<LogWriter> writer, std::unique_ptr<LogWriter>& list) {
    writer->next = std::move(list);
    list = std::move(writer);
}

/// The replaced writers that nobody uses any more.
std::unique_ptr<LogWriter> LogWrapper::takeUnused() {
    std::unique_ptr<LogWriter> unused;
    std::lock_guard lock(replacedMutex);
    while (hasReplaced) {
        if (!leaving) {
            leaving = std::move(replaced);
            sidesToSeeEmpty = 2;
        }
        const unsigned other = 1 - side;
        if (linesInHand[other] != 0) {
            break;
        }
        side = other;
        if (--sidesToSeeEmpty == 0) {
            hasReplaced = replaced != nullptr;
            while (leaving) {
                std::unique_ptr<LogWriter> first = std::move(leaving);
                leaving = std::move(first->next);
                prepend(std::move(first), unused);
            }
        }
    }
    return unused;
}

void LogWrapper::destroyUnused() {
    if (isForkedChild()) {
        return;  // forked by the writer of the line that ends here
    }
    std::unique_ptr<LogWriter> next = takeUnused();
    while (next) {
        next = std::move(next->next);
    }
}

void LogWrapper::log(LogLevel level, const char* tag, const char* format, ...) {
    if (isForkedChild()) {
        return;
    }
    MessageBuffer buffer;
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(buffer.data(), buffer.size(), format, arguments);
    va_end(arguments);
    const int limit = static_cast<int>(buffer.size()) - 1;
    buffer[0] = length < 0 ? '\0' : buffer[0];
    write(level, tag, buffer.data(), static_cast<size_t>(std::clamp(length, 0, limit)));
}

void LogWrapper::logText(LogLevel level, const char* tag, const char* text) {
    if (isForkedChild()) {
        return;
    }
    const size_t length = strnlen(text, kMessageLimit);
    if (length == kMessageLimit) {
        logJoined(level, tag, {std::string_view(text, length)});
    } else {
        write(level, tag, text, length);
    }
}

void LogWrapper::logJoined(LogLevel level, const char* tag,
                           std::initializer_list<std::string_view> texts) {
    if (isForkedChild()) {
        return;
    }
    MessageBuffer buffer;
    size_t length = join(buffer, texts, false);
    if (std::memchr(buffer.data(), '\0', length) != nullptr) {
        length = join(buffer, texts, true);
    }
    buffer[length] = '\0';
    write(level, tag, buffer.data(), length);
}

void LogWrapper::write(LogLevel level, const char* tag, const char* message, size_t length) {
    const LineInHand line(*this);
    LogWriter* const current = writer;
    try {
        if (current) {
            current->writeText(level, tag, message);
        }
        const bool isKept = level == LogLevel::ERROR || level == LogLevel::EVENT;
        if (isKept && !isForkedChild()) {  // the writer may have forked, while others kept a line
            LocalLogBuffer::getInstance().addLogWithTimestamp({message, length});
        }
    } catch (const std::bad_alloc&) {
        // A line is not worth the process: destructors log, and those who handle other failures.
    }
}

void AdbWriter::write(LogLevel level, std::string tag, std::string msg) {
    writeText(level, tag.c_str(), msg.c_str());
}

void AdbWriter::writeText(LogLevel level, const char* tag, const char* msg) {
    __android_log_print(convertPrio(level), tag, "%s", msg);
}

int AdbWriter::convertPrio(LogLevel level) {
    switch (level) {
        case LogLevel::VERBOSE:
            return ANDROID_LOG_VERBOSE;
        case LogLevel::DEBUG:
            return ANDROID_LOG_DEBUG;
        case LogLevel::ERROR:
            return ANDROID_LOG_ERROR;
        case LogLevel::FATAL:
            return ANDROID_LOG_FATAL;
        case LogLevel::INFO:
        case LogLevel::EVENT:
            break;
    }
    return ANDROID_LOG_INFO;
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

int DiagWriter::convertPrio(LogLevel level) {
    switch (level) {
        case LogLevel::ERROR:
        case LogLevel::EVENT:
            return kDiagMaskHigh;
        case LogLevel::FATAL:
            return kDiagMaskFatal;
        case LogLevel::VERBOSE:
        case LogLevel::DEBUG:
        case LogLevel::INFO:
            break;
    }
    return kDiagMaskLow;
}

}  // namespace kiv
