#include "Output.h"

#include <android/log.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "Failure.h"
#include "Files.h"

namespace kiv::kivctl {
namespace {

/// Never closed: the library logs until the process ends.
std::atomic<std::FILE*> logFile{nullptr};

/// Of a write that failed, or that a signal ended.
[[noreturn]] void fail(const std::string& what) {
    const int error = errno;
    endIfInterrupted();
    throw Failure(kCannotWrite, what + ": " + std::strerror(error));
}

void handleLogLine(const __android_logger_data* data, const char* text) {
    std::FILE* const file = logFile;
    if (file == nullptr) {
        return;
    }
    constexpr char kPriorities[] = "??VDIWEFS";
    const auto priority = static_cast<size_t>(data->priority);
    const char letter = priority < sizeof kPriorities - 1 ? kPriorities[priority] : '?';
    std::fprintf(file, "%c %s: %s\n", letter, data->tag ? data->tag : "", text);
}

bool isTerminal(std::FILE* file) { return isatty(fileno(file)) == 1; }

/// NO_COLOR counts if it is set and not empty.
bool allowsColours() {
    const char* const no = std::getenv("NO_COLOR");
    return no == nullptr || *no == '\0';
}

}  // namespace

std::FILE* claimStandardOutput() {
    const int own = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    if (own < 0) {
        fail("standard output");
    }
    const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (null < 0 || dup2(null, STDOUT_FILENO) < 0) {
        fail("/dev/null");
    }
    close(null);
    std::FILE* file = fdopen(own, "w");
    if (file == nullptr) {
        fail("standard output");
    }
    return file;
}

Output::Output(std::FILE* results, std::FILE* messages)
    : out(results),
      err(messages),
      isWatched(isTerminal(messages)),
      coloured(isTerminal(results) && allowsColours()) {}

void Output::print(std::string_view text) {
    clearProgress();
    if (std::fwrite(text.data(), 1, text.size(), out) != text.size()) {
        fail("standard output");
    }
}

void Output::complain(std::string_view text) {
    clearProgress();
    // Where messages can't be written there is nobody to tell.
    std::fprintf(err, "kivctl: %.*s\n", static_cast<int>(text.size()), text.data());
}

void Output::showProgress(const char* what, size_t done, size_t total) {
    constexpr std::chrono::milliseconds kPatience{1000}, kStep{100};
    endIfInterrupted();
    if (!isWatched) {
        return;
    }
    const auto now = Clock::now();
    if (work == nullptr || std::strcmp(work, what) != 0) {
        clearProgress();
        work = what;
        begin = now;
    }
    if (now - begin < kPatience || now - lastDrawn < kStep) {
        return;
    }
    lastDrawn = now;
    std::string line = std::string(what) + " " + std::to_string(done);
    if (total > 0) {
        constexpr size_t kBarWidth = 30;
        const size_t filled = done * kBarWidth / total;
        const double seconds = std::chrono::duration<double>(now - begin).count();
        const double left =
            done == 0 ? 0 : seconds * static_cast<double>(total - done) / static_cast<double>(done);
        line = std::string(what) + " [" + std::string(filled, '#') +
               std::string(kBarWidth - filled, '.') + "] " + std::to_string(done * 100 / total) +
               "%, " + std::to_string(static_cast<long>(left + 1)) + " s left";
    }
    std::fprintf(err, "\r%-*s", static_cast<int>(drawn), line.c_str());
    std::fflush(err);
    drawn = line.size();
}

void Output::clearProgress() {
    if (drawn > 0) {
        std::fprintf(err, "\r%*s\r", static_cast<int>(drawn), "");
        std::fflush(err);
        drawn = 0;
    }
}

void Output::finish() {
    clearProgress();
    if (std::fflush(out) != 0 || std::ferror(out)) {
        fail("standard output");
    }
}

size_t Output::width() const {
    winsize size{};
    return isTerminal(out) && ioctl(fileno(out), TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

void logToFile(const std::string& path) {
    __android_log_set_logger(handleLogLine);
    if (path.empty()) {
        return;
    }
    protectSecrets(path);
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, S_IRUSR | S_IWUSR);
    std::FILE* file = fd < 0 ? nullptr : fdopen(fd, "w");
    if (file == nullptr) {
        fail(path);
    }
    logFile = file;
}

void finishLog() {
    std::FILE* file = logFile;
    if (file != nullptr && (std::fflush(file) != 0 || std::ferror(file))) {
        fail("the log file");
    }
}

}  // namespace kiv::kivctl
