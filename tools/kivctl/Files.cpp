#include "Files.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>

#include "Failure.h"
#include "Text.h"

namespace kiv::kivctl {
namespace {

namespace fs = std::filesystem;

constexpr mode_t kOwnerOnly = S_IRUSR | S_IWUSR;

volatile std::sig_atomic_t caughtSignal = 0;

/// Also of two names of which no file exists yet. Devices and pipes are the user's own business.
bool areSame(const std::string& a, const std::string& b) {
    std::error_code ignored;
    if (fs::exists(a, ignored) && fs::exists(b, ignored)) {
        return fs::is_regular_file(a, ignored) && fs::equivalent(a, b, ignored);
    }
    return targetOf(a) == targetOf(b);
}

[[noreturn]] void failToWrite(const std::string& path) {
    throw Failure(kCannotWrite, path + ": " + std::strerror(errno));
}

}  // namespace

void requireDistinct(const std::vector<NamedFile>& files) {
    for (auto one = files.begin(); one != files.end(); ++one) {
        for (auto other = files.begin(); other != one; ++other) {
            if (!one->path.empty() && !other->path.empty() &&
                (one->isWritten || other->isWritten) && areSame(one->path, other->path)) {
                throw Failure(kUsage, std::string(other->option) + " and " + one->option +
                                          " name the same file, " + quote(one->path));
            }
        }
    }
}

void protectSecrets(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
        (status.st_mode & 0777) != kOwnerOnly && chmod(path.c_str(), kOwnerOnly) != 0) {
        throw Failure(kCannotWrite, path + ": others may read it, and that can't be changed: " +
                                        std::strerror(errno));
    }
}

std::string targetOf(const std::string& path) {
    constexpr int kMostLinks = 40;
    std::error_code error;
    fs::path target = path;
    for (int links = 0; fs::is_symlink(target, error); ++links) {
        if (links == kMostLinks) {
            throw Failure(kCannotRead, path + ": too many symbolic links");
        }
        const fs::path next = fs::read_symlink(target, error);
        target = next.is_absolute() ? next : target.parent_path() / next;
    }
    const fs::path folder = fs::weakly_canonical(
        target.has_parent_path() ? target.parent_path() : fs::path("."), error);
    return error ? target.string() : (folder / target.filename()).string();
}

FileLock::FileLock(const std::string& path) : path(path + ".lock") {
    constexpr std::chrono::milliseconds kPause{20};
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    while (!tryToLock()) {
        endIfInterrupted();
        if (std::chrono::steady_clock::now() >= end) {
            std::string name = "unknown";
            std::ifstream("/proc/" + std::to_string(holder) + "/comm") >> name;
            throw Failure(kCannotRead, path + ": in use by process " + std::to_string(holder) +
                                           " (" + escape(name) + "); try again when it has ended");
        }
        std::this_thread::sleep_for(kPause);
    }
}

FileLock::~FileLock() {
    unlink(path.c_str());
    close(file);
}

/// False if another run holds the lock, or has just given it up.
bool FileLock::tryToLock() {
    file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, kOwnerOnly);
    if (file < 0) {
        failToWrite(path);
    }
    struct flock lock {};
    lock.l_type = F_WRLCK;
    struct stat opened {
    }, named{};
    // The holder removes the name before the lock: a lock on a removed file counts for nothing.
    if (fcntl(file, F_SETLK, &lock) == 0 && fstat(file, &opened) == 0 &&
        stat(path.c_str(), &named) == 0 && opened.st_ino == named.st_ino) {
        return true;
    }
    lock.l_type = F_WRLCK;
    if (fcntl(file, F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK) {
        holder = lock.l_pid;
    }
    close(file);
    return false;
}

void catchSignals() {
    struct sigaction action {};
    action.sa_handler = [](int number) { caughtSignal = number; };  // and no SA_RESTART
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
}

void endIfInterrupted() {
    if (caughtSignal != 0) {
        throw Failure(caughtSignal == SIGINT ? kInterrupted : kTerminated,
                      caughtSignal == SIGINT ? "interrupted" : "terminated");
    }
}

}  // namespace kiv::kivctl
