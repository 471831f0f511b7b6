#include "DiagLog.h"

#include <cstdarg>
#include <cstdio>
#include <deque>
#include <mutex>
#include <string>
#include <utility>

#include "diag_log.h"

namespace kiv::emulator {
namespace {

constexpr size_t kMostLines = 65536;

struct Log {
    std::mutex mutex;
    int users = 0;
    std::deque<ModemEmulator::DiagLine> lines;
};

/// Never destroyed: others log until the process ends.
Log& sharedLog() {
    static Log& log = *new Log;
    return log;
}

std::string formatLine(const char* format, va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, again);
    va_end(again);
    if (length < 0) {
        return {};
    }
    std::string text(static_cast<size_t>(length) + 1, '\0');
    std::vsnprintf(text.data(), text.size(), format, arguments);
    text.pop_back();
    return text;
}

void addLine(uint32_t mask, std::string text) {
    Log& log = sharedLog();
    std::lock_guard lock(log.mutex);
    // As on a device, a line written by nobody's leave is lost.
    if (log.users == 0) {
        return;
    }
    if (log.lines.size() == kMostLines) {
        log.lines.pop_front();
    }
    log.lines.push_back({mask, std::move(text)});
}

}  // namespace

std::vector<ModemEmulator::DiagLine> takeDiagnosticLines() {
    Log& log = sharedLog();
    std::lock_guard lock(log.mutex);
    const auto lines = std::exchange(log.lines, {});
    return {lines.begin(), lines.end()};
}

int countDiagnosticUsers() {
    Log& log = sharedLog();
    std::lock_guard lock(log.mutex);
    return log.users;
}

}  // namespace kiv::emulator

using kiv::emulator::sharedLog;

KIV_EMULATOR_API int Diag_LSM_Init(uint8_t* reserved) {
    if (reserved) {
        return 0;
    }
    std::lock_guard lock(sharedLog().mutex);
    ++sharedLog().users;
    return 1;
}

KIV_EMULATOR_API int Diag_LSM_DeInit(void) {
    std::lock_guard lock(sharedLog().mutex);
    if (sharedLog().users == 0) {
        return 0;
    }
    --sharedLog().users;
    return 1;
}

KIV_EMULATOR_API void msg_sprintf(const diag_msg_descriptor* descriptor, ...) {
    if (!descriptor || !descriptor->format) {
        return;
    }
    va_list arguments;
    va_start(arguments, descriptor);
    std::string text = kiv::emulator::formatLine(descriptor->format, arguments);
    va_end(arguments);
    kiv::emulator::addLine(descriptor->mask, std::move(text));
}
