#ifndef TOOLS_KIVCTL_SESSION_H
#define TOOLS_KIVCTL_SESSION_H

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Files.h"
#include "ModemEmulator.h"

namespace kiv::kivctl {

/// What a session is to run on.
struct SessionOptions {
    int bindValue = 0;
    std::string stateFile;       ///< the modem's profiles; empty, or of no file, for a factory's
    bool replacesState = false;  ///< by what the modem holds in the end
    std::optional<emulator::Scenario> scenario;
    std::string journalFile;  ///< empty for none
    bool showSecrets = false;
    std::chrono::milliseconds patience = std::chrono::seconds(5);
};

/// The emulated modem and the library on it, which commands share. The library is started with the
/// modem, and lives as long as the process, as on a phone.
///
/// With a scenario the modem runs on the virtual clock. Each fresh modem plays the scenario anew.
///
/// Threads: one, which uses the library too. Blocking: as the library, and as the modem's
/// deliveries; a signal ends the waiting. Failures are thrown as Failure.
class Session {
public:
    explicit Session(SessionOptions chosen);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /// Powers the modem on and has the library read its profiles, if that has not been done. A
    /// state that is to be replaced belongs to this session from here on.
    void open();

    /// Puts a modem in its factory state in place of the one before, for the library to read. No
    /// key may be held.
    void renew();

    /// Writes the modem's state into the file, if it is to be replaced.
    void save();

    /// Ends a step: with a scenario a second passes, and the library handles what happens in it.
    void pause();

    /// Ends the journal.
    void finish();

    /// Puts a line into the journal.
    void mark(const std::string& text);

    bool hasScenario() const { return scenario().has_value(); }
    /// How often each fault of the scenario struck, in its order.
    std::vector<unsigned> strikes() const;

private:
    /// Blocks until the modem has told its clients of all changes so far, and pauses.
    void settle();
    const std::optional<emulator::Scenario>& scenario() const { return options.scenario; }
    void fill();
    void powerOn();
    void deliver();
    void letTimePass(std::chrono::milliseconds span, const std::function<bool()>& isEnough);
    bool waitFor(const std::function<bool(std::chrono::milliseconds)>& wait);

    SessionOptions options;
    std::vector<std::shared_ptr<std::atomic<unsigned>>> struck;
    std::optional<FileLock> lock;
    bool isLibraryStarted = false;
};

}  // namespace kiv::kivctl

#endif
