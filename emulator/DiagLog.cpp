// The C interface of the diagnostic log, and what it collected.

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <string>
#include <utility>

#include "ModemEmulator.h"
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

}  // namespace

std::vector<ModemEmulator::DiagLine> ModemEmulator::takeDiagLines() {
    Log& log = sharedLog();
    std::lock_guard lock(log.mutex);
    const auto lines = std::exchange(log.lines, {});
    return {lines.begin(), lines.end()};
}

int ModemEmulator::diagUsers() const {
    std::lock_guard lock(sharedLog().mutex);
    return sharedLog().users;
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
    char* text = nullptr;
    const int length = vasprintf(&text, descriptor->format, arguments);
    va_end(arguments);
    const std::string line = length < 0 ? "" : text;
    if (length >= 0) {
        std::free(text);
    }
    auto& log = sharedLog();
    std::lock_guard lock(log.mutex);
    // As on a device, a line written by nobody's leave is lost.
    if (log.users == 0) {
        return;
    }
    if (log.lines.size() == kiv::emulator::kMostLines) {
        log.lines.pop_front();
    }
    log.lines.push_back({descriptor->mask, line});
}
