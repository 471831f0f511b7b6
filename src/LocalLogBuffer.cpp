#include "LocalLogBuffer.h"

#include <sys/time.h>

#include <array>
#include <ctime>
#include <utility>

#include "NeverDestroyed.h"

namespace kiv {

namespace {

/// The local time as "2026-11-15 07:31:29".
std::string secondText(time_t second) {
    tm local{};
    localtime_r(&second, &local);
    std::array<char, 50> text{};
    strftime(text.data(), text.size(), "%F %X", &local);
    return text.data();
}

/// The part of a second as ".042".
std::string millisecondText(suseconds_t microseconds) {
    const auto digit = [microseconds](int unit) {
        return static_cast<char>('0' + microseconds / unit % 10);
    };
    return {'.', digit(100000), digit(10000), digit(1000)};
}

}  // namespace

LocalLogBuffer& LocalLogBuffer::getInstance() {
    static NeverDestroyed<LocalLogBuffer> instance("KIV", 200);
    return instance.get();
}

LocalLogBuffer::LocalLogBuffer(std::string name, int capacity)
    : name(std::move(name)), suffix(" [" + this->name + "]"), capacity(capacity) {}

void LocalLogBuffer::addLogWithTimestamp(std::string_view msg) {
    timeval now{};
    std::string line;
    std::lock_guard lock(mutex);
    gettimeofday(&now, nullptr);
    if (now.tv_sec != second || prefix.empty()) {
        prefix = "    " + secondText(now.tv_sec);
        second = now.tv_sec;
    }
    // Meant: the bound is tested before the line is added, so that capacity + 1 lines are kept.
    while (!logs.empty() && static_cast<int>(logs.size()) > capacity) {
        line = std::move(logs.front());  // the memory of the oldest line serves the new one
        logs.pop_front();
    }
    line.assign(prefix).append(millisecondText(now.tv_usec)).append(suffix).append(msg);
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
