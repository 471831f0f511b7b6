#include "LocalLogBuffer.h"

#include <sys/time.h>

#include <array>
#include <cstddef>
#include <ctime>
#include <utility>

#include "NeverDestroyed.h"

namespace kiv {

namespace {

/// The local time as "2026-11-15 07:31:29".
std::string secondText(time_t second) {
    tm local{};
    tzset();  // localtime_r need not see that the zone has changed
    localtime_r(&second, &local);
    std::array<char, 50> text{};
    strftime(text.data(), text.size(), "%F %X", &local);
    return text.data();
}

}  // namespace

LocalLogBuffer& LocalLogBuffer::getInstance() {
    static NeverDestroyed<LocalLogBuffer> instance("KIV", 200);
    return instance.get();
}

LocalLogBuffer::LocalLogBuffer(std::string name, int capacity)
    : name(std::move(name)),
      suffix(" [" + this->name + "]"),
      capacity(static_cast<size_t>(capacity)) {}

void LocalLogBuffer::addLogWithTimestamp(std::string_view msg) {
    timeval now{};
    std::lock_guard lock(mutex);
    gettimeofday(&now, nullptr);  // under the lock, for lines to be in the order of their times
    if (now.tv_sec != second || head.empty()) {
        head = "    " + secondText(now.tv_sec) + ".000" + suffix;
        second = now.tv_sec;
    }
    const size_t length = head.size() + msg.size();
    // Meant: the bound is tested before the line is added, so that capacity + 1 lines are kept.
    if (logs.size() <= capacity) {
        logs.emplace_front(length, ' ');
    }
    // The memory of the oldest line becomes the newest line's. Behind reserve nothing can fail.
    std::string& line = logs.front();
    line.reserve(length);
    line.assign(head).append(msg);
    const auto milliseconds = static_cast<unsigned>(now.tv_usec) / 1000;
    char* const digits = line.data() + head.size() - suffix.size() - 3;
    digits[0] = static_cast<char>('0' + milliseconds / 100);
    digits[1] = static_cast<char>('0' + milliseconds / 10 % 10);
    digits[2] = static_cast<char>('0' + milliseconds % 10);
    logs.splice(logs.end(), logs, logs.begin());
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
