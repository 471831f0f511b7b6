#include "LocalLogBuffer.h"

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
    : name(std::move(name)), suffix(" [" + this->name + "]"), capacity(capacity) {}

void LocalLogBuffer::addLogWithTimestamp(std::string_view msg) {
    timeval now{};
    std::lock_guard lock(mutex);
    gettimeofday(&now, nullptr);  // under the lock, for lines to be in the order of their times
    setTime(now);
    std::string& line = addLine(head.size() + msg.size());
    line.assign(head).append(msg);
}

void LocalLogBuffer::setTime(const timeval& now) {
    if (now.tv_sec != second || head.empty()) {
        head = "    " + secondText(now.tv_sec) + ".000" + suffix;
        second = now.tv_sec;
        millisecond = 0;
    }
    const auto current = static_cast<unsigned>(now.tv_usec) / 1000;
    if (current != millisecond) {
        char* const digits = head.data() + head.size() - suffix.size() - 3;
        digits[0] = static_cast<char>('0' + current / 100);
        digits[1] = static_cast<char>('0' + current / 10 % 10);
        digits[2] = static_cast<char>('0' + current % 10);
        millisecond = current;
    }
}

/// A place at the end for a line of that size, in the memory of the oldest line if that has to go.
/// Nothing has changed if there is no memory.
std::string& LocalLogBuffer::addLine(size_t size) {
    // Meant: the bound is tested before the line is added, so that capacity + 1 lines are kept.
    if (logs.empty() || static_cast<int>(logs.size()) <= capacity) {
        std::string line;
        line.reserve(size);
        return logs.emplace_back(std::move(line));
    }
    std::string& line = logs[oldest];
    line.reserve(size);
    oldest = oldest + 1 < logs.size() ? oldest + 1 : 0;
    return line;
}

std::vector<std::string> LocalLogBuffer::getLogs() {
    std::lock_guard lock(mutex);
    const auto first = logs.begin() + static_cast<std::ptrdiff_t>(oldest);
    std::vector<std::string> inOrder(first, logs.end());
    inOrder.insert(inOrder.end(), logs.begin(), first);
    return inOrder;
}

void LocalLogBuffer::flush() {
    std::lock_guard lock(mutex);
    logs.clear();
    oldest = 0;
}

}  // namespace kiv
