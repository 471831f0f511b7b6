#ifndef TOOLS_KIVCTL_SESSION_H
#define TOOLS_KIVCTL_SESSION_H

#include <chrono>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>

#include "ModemEmulator.h"

namespace kiv::kivctl {

/// The modem, or the library's way to it, did not get ready in time.
struct ModemUnreachable : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// The file with the modem's state can't be read.
struct StateUnreadable : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// The emulated modem and the library on it. The library is started with the first modem and then
/// lives through the modem's restarts, as on a phone.
///
/// With a scenario the modem runs on the virtual clock, and some time passes between any two steps.
/// Each modem plays the scenario anew. Before each call of the library, those that its policies
/// make included, the library comes to rest, so that each run goes the same way.
class Session {
public:
    explicit Session(int bindValue, std::chrono::milliseconds patience = std::chrono::seconds(5))
        : bindValue(bindValue), patience(patience) {}
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /// Plays a scenario from the next modem on. Before the first modem; the thread that calls this
    /// is the one that uses the library and the session.
    void usePlay(emulator::Scenario chosen);

    /// Powers the modem off and brings it back to its factory state, or to the one that the file
    /// holds; no name, or one that no file has, is the factory state. No key may be held. Throws
    /// ModemUnreachable and StateUnreadable.
    void resetModem(const std::string& stateFile = {});

    /// Writes the modem's state into the file, unless the name is empty. Throws OutputError.
    void saveModem(const std::string& stateFile) const;

    /// Powers the modem on, and has the library find it and read its profiles. Throws
    /// ModemUnreachable.
    void powerOn();

    /// Blocks until the modem has told its clients of all changes so far, and with a scenario until
    /// the library has handled them. Throws ModemUnreachable.
    void settle() const;

private:
    void deliver() const;
    /// Blocks until the library has handled what the modem told it so far; no time passes.
    void rest();
    void letTimePass(std::chrono::milliseconds span, const std::function<bool()>& isEnough) const;
    bool waitForLibrary() const;

    const int bindValue;
    const std::chrono::milliseconds patience;
    std::optional<emulator::Scenario> scenario;
    bool isLibraryStarted = false;
    uint64_t callbacksAtRest = 0;
    const std::function<void()> beforeCall = [this] { rest(); };
};

}  // namespace kiv::kivctl

#endif
