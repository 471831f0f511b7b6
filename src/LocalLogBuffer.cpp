#include "LocalLogBuffer.h"

#include <sys/time.h>

#include <array>
#include <cstdio>
#include <ctime>
#include <utility>

#include "NeverDestroyed.h"

namespace kiv {

namespace {

/// The local time as "2026-11-15 07:31:29.042".
std::string timestamp() {
    timeval now{};
    gettimeofday(&now, nullptr);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    std::array<char, 50> seconds{};
    strftime(seconds.data(), seconds.size(), "%F %X", &local);
    std::array<char, 64> text{};
    snprintf(text.data(), text.size(), "%s.%03d", seconds.data(),
             static_cast<int>(now.tv_usec / 1000));
    return text.data();
}

}  // namespace

LocalLogBuffer& LocalLogBuffer::getInstance() {
    static NeverDestroyed<LocalLogBuffer> instance("KIV", 200);
    return instance.get();
}

LocalLogBuffer::LocalLogBuffer(std::string name, int capacity)
    : name(std::move(name)), capacity(capacity) {}

void LocalLogBuffer::addLogWithTimestamp(std::string msg) {
    std::string line = "    " + timestamp() + " [" + name + "]" + msg;
    std::lock_guard lock(mutex);
    // Meant: the bound is tested before the line is added, so that capacity + 1 lines are kept.
    while (!logs.empty() && static_cast<int>(logs.size()) > capacity) {
        logs.pop_front();
    }
    logs.push_back(std::move(line));
}

std::vector<std::string> LocalLogBuffer::getLogs() {
    std::lock_guard lock(mutex);
    return {logs.begin(), logs.end()};
}

void LocalLogBuffer::flush() {
    std::lock_guard lock(mutex);
    logs.clear();
}

}  // namespace kiv
