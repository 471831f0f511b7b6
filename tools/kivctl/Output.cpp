#include "Output.h"

#include <android/log.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>

namespace kiv::kivctl {
namespace {

constexpr size_t kBarWidth = 40;

/// Never closed: the library logs until the process ends.
std::atomic<std::FILE*> logFile{nullptr};

OutputError failure(const std::string& what) {
    return OutputError(what + ": " + std::strerror(errno));
}

thread_local const std::function<void()>* callWatcher = nullptr;

bool tellsOfACall(std::string_view line) {
    const bool isCall = line.substr(0, 9) == "Manager::" && line.find(" > ") != line.npos;
    return isCall || line == "~ProfileKey";
}

void handleLogLine(const __android_logger_data* data, const char* text) {
    if (callWatcher && tellsOfACall(text)) {
        (*callWatcher)();
    }
    std::FILE* const file = logFile;
    if (file == nullptr) {
        return;
    }
    constexpr char kPriorities[] = "??VDIWEFS";
    const auto priority = static_cast<size_t>(data->priority);
    const char letter = priority < sizeof kPriorities - 1 ? kPriorities[priority] : '?';
    std::fprintf(file, "%c %s: %s\n", letter, data->tag ? data->tag : "", text);
}

}  // namespace

std::FILE* claimStandardOutput() {
    const int own = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    if (own < 0) {
        throw failure("standard output");
    }
    const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (null < 0 || dup2(null, STDOUT_FILENO) < 0) {
        throw failure("/dev/null");
    }
    close(null);
    std::FILE* file = fdopen(own, "w");
    if (file == nullptr) {
        throw failure("standard output");
    }
    return file;
}

Output::Output(std::FILE* results, std::FILE* messages)
    : out(results), err(messages), isTerminal(isatty(fileno(messages)) == 1) {}

void Output::print(std::string_view text) {
    clearProgress();
    if (std::fwrite(text.data(), 1, text.size(), out) != text.size()) {
        throw failure("standard output");
    }
}

void Output::complain(std::string_view text) {
    clearProgress();
    // Where messages can't be written there is nobody to tell.
    std::fprintf(err, "kivctl: %.*s\n", static_cast<int>(text.size()), text.data());
}

void Output::showProgress(size_t done, size_t total) {
    if (!isTerminal) {
        return;
    }
    const size_t filled = done * kBarWidth / total;
    const std::string drawn = "[" + std::string(filled, '#') +
                              std::string(kBarWidth - filled, '.') + "] " +
                              std::to_string(done * 100 / total) + "%";
    if (drawn != progress) {
        progress = drawn;
        std::fprintf(err, "\r%s", progress.c_str());
        std::fflush(err);
    }
}

void Output::clearProgress() {
    if (!progress.empty()) {
        std::fprintf(err, "\r%*s\r", static_cast<int>(progress.size()), "");
        std::fflush(err);
        progress.clear();
    }
}

void Output::finish() {
    clearProgress();
    if (std::fflush(out) != 0 || std::ferror(out)) {
        throw failure("standard output");
    }
}

void logToFile(const std::string& path) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, S_IRUSR | S_IWUSR);
    std::FILE* file = fd < 0 ? nullptr : fdopen(fd, "w");
    if (file == nullptr) {
        throw failure(path);
    }
    logFile = file;
    __android_log_set_logger(handleLogLine);
}

void discardLog() { __android_log_set_logger(handleLogLine); }

void watchCalls(const std::function<void()>* action) { callWatcher = action; }

void finishLog() {
    std::FILE* file = logFile;
    if (file != nullptr && (std::fflush(file) != 0 || std::ferror(file))) {
        throw failure("the log file");
    }
}

}  // namespace kiv::kivctl
