#ifndef EMULATOR_JOURNAL_H
#define EMULATOR_JOURNAL_H

#include <cstdio>
#include <optional>
#include <span>
#include <string>

#include "ModemEmulator.h"
#include "Threads.h"

namespace kiv::emulator {

/// Writes what passes between the modem and its clients, and what happens to the modem: one JSON
/// object a line.
///
/// Threads: one at a time, but for isOpen. Ownership: plain value. Blocking: as a file does.
class Journal {
public:
    explicit Journal(const Threads& threads) : threads(threads) {}

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
    /// For client 0 the event is the modem's, or a command of the program.
    void addEvent(const char* direction, unsigned client, const std::string& what);

private:
    template <class Compose>
    void add(const char* direction, unsigned client, Compose compose);

    const Threads& threads;  ///< for the time
    std::atomic<bool> opened = false;
    std::FILE* file = nullptr;
    bool showSecrets = false;
    bool isWhole = true;
    TimePoint start;
};

}  // namespace kiv::emulator

#endif
