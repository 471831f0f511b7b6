#ifndef KIVR_SRC_LOGWRAPPER_H
#define KIVR_SRC_LOGWRAPPER_H

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "ThreadSafety.h"

namespace kiv {

/// The numbers are fixed. EVENT is for what one wants to find again after the fact: requests,
/// cache changes, indications.
enum class LogLevel : int32_t {
    VERBOSE = 0,
    DEBUG = 1,
    INFO = 2,
    ERROR = 3,
    FATAL = 4,
    EVENT = 5,
};

/// One output for log lines. write may be called on any thread, on several at once.
class LogWriter {
public:
    virtual ~LogWriter() = default;
    virtual void write(LogLevel level, std::string tag, std::string msg) = 0;
    /// The level in the terms of the output.
    virtual int convertPrio(LogLevel level) = 0;
    /// write, for texts that stay the caller's. A writer that does not keep them spares itself the
    /// copies here.
    virtual void writeText(LogLevel level, const char* tag, const char* msg) {
        write(level, tag, msg);
    }
};

/// Writes to the Android log.
class AdbWriter final : public LogWriter {
public:
    void write(LogLevel level, std::string tag, std::string msg) override;
    int convertPrio(LogLevel level) override;
    void writeText(LogLevel level, const char* tag, const char* msg) override;
};

/// Writes to the diagnostic log, which is open while a DiagWriter exists.
class DiagWriter final : public LogWriter {
public:
    DiagWriter();
    ~DiagWriter() override;
    DiagWriter(const DiagWriter&) = delete;
    DiagWriter& operator=(const DiagWriter&) = delete;
    void write(LogLevel level, std::string tag, std::string msg) override;
    int convertPrio(LogLevel level) override;
    void writeText(LogLevel level, const char* tag, const char* msg) override;
};

/// The front end of the log, through which every line goes.
///
/// Threads: any, at any time, also during static destruction; from the end of the process's
/// normal run on, lines go to the local buffer only.
/// Ownership: one instance, which is never destroyed; its writer is destroyed at exit.
/// Blocking: only as the writer does. No lock is held while the writer runs.
/// Re-entrancy: a writer may log, but must see to it that this ends.
class LogWrapper {
public:
    static LogWrapper& getInstance();

    /// Installs the writer; empty for none. The one before is destroyed when the lines that are
    /// being written at that time are done: here, or at the end of a line.
    void setLogWriter(std::unique_ptr<LogWriter> newWriter) KIV_EXCLUDES(mutex);

    /// Writes one line, cut to 511 bytes. Lines of level ERROR and EVENT are also kept in the
    /// local buffer. Without memory a line is lost.
    void log(LogLevel level, const char* tag, const char* format, ...) KIV_EXCLUDES(mutex)
        __attribute__((format(printf, 4, 5)));

    /// The same for a line of one or more texts: each as "%s" would print it.
    void logText(LogLevel level, const char* tag, std::initializer_list<std::string_view> texts)
        KIV_EXCLUDES(mutex);

private:
    void write(LogLevel level, const char* tag, const char* message) KIV_EXCLUDES(mutex);
    std::shared_ptr<LogWriter> getLogWriter() KIV_EXCLUDES(mutex);

    std::mutex mutex;
    /// Shared with the lines that are being written, each of which may be its last owner.
    std::shared_ptr<LogWriter> writer KIV_GUARDED_BY(mutex);
};

/// The tag of every line.
inline constexpr const char* kLogTag = "KIV";

/// One line of the library's log: KIV_LOG(INFO, "format", arguments...).
#define KIV_LOG(level, ...) \
    ::kiv::LogWrapper::getInstance().log(::kiv::LogLevel::level, ::kiv::kLogTag, __VA_ARGS__)

/// The same for texts, where lines are many or long: KIV_LOG_TEXT(INFO, "label ", text...).
#define KIV_LOG_TEXT(level, ...) \
    ::kiv::LogWrapper::getInstance().logText(::kiv::LogLevel::level, ::kiv::kLogTag, {__VA_ARGS__})

}  // namespace kiv

#endif
