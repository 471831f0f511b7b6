#ifndef EMULATOR_JOURNAL_H
#define EMULATOR_JOURNAL_H

#include <cstdio>
#include <optional>
#include <span>
#include <string>

#include "Clock.h"
#include "ModemEmulator.h"

namespace kiv::emulator {

class JsonText;

/// The direction of a line, with its name in the file.
constexpr const char* kRequest = "request";
constexpr const char* kResponse = "response";
constexpr const char* kIndication = "indication";
constexpr const char* kNotify = "notify";
constexpr const char* kError = "error";
constexpr const char* kOpen = "open";
constexpr const char* kEvent = "event";
constexpr const char* kProgram = "program";

/// Writes what passes between the modem and its clients, and what happens to the modem: one JSON
/// object a line.
///
/// Threads: one at a time, but for isOpen. Ownership: plain value. Blocking: as a file does.
class Journal {
public:
    explicit Journal(Clock& clock) : clock(clock) {}

    bool isOpen() const { return opened; }
    /// Replaces the file; false, with errno, if it can't be opened. Passwords get into it only if
    /// they are to.
    bool open(const std::string& path, bool showSecrets);
    /// False unless all has got into the file.
    bool close();

    // Nothing happens while no journal is open.
    void addRequest(unsigned client, const Request& request);
    void addResponse(unsigned client, const Request& request, std::span<const std::byte> response);
    void addIndication(unsigned client, unsigned messageId, std::span<const std::byte> bytes);
    /// What is no message: a client that is opened, what a callback tells, and, for
    /// client 0, what happens to the modem, of itself or by the program.
    void addEvent(const char* direction, unsigned client, const std::string& what);

private:
    JsonText lineOf(const char* direction, unsigned client) const;
    void write(const JsonText& line);

    Clock& clock;
    std::atomic<bool> opened = false;
    std::FILE* file = nullptr;
    bool showSecrets = false;
    bool isWhole = true;
    TimePoint start;
};

}  // namespace kiv::emulator

#endif
