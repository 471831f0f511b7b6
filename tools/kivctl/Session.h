#ifndef TOOLS_KIVCTL_SESSION_H
#define TOOLS_KIVCTL_SESSION_H

#include <chrono>
#include <stdexcept>
#include <string>

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
class Session {
public:
    explicit Session(int bindValue, std::chrono::milliseconds patience = std::chrono::seconds(5))
        : bindValue(bindValue), patience(patience) {}

    /// Powers the modem off and brings it back to its factory state, or to the one that the file
    /// holds; no name, or one that no file has, is the factory state. No key may be held. Throws
    /// ModemUnreachable and StateUnreadable.
    void resetModem(const std::string& stateFile = {});

    /// Writes the modem's state into the file, unless the name is empty. Throws OutputError.
    void saveModem(const std::string& stateFile) const;

    /// Powers the modem on, and has the library find it and read its profiles. Throws
    /// ModemUnreachable.
    void powerOn();

    /// Blocks until the modem has told its clients of all changes so far. Throws ModemUnreachable.
    void settle() const;

private:
    const int bindValue;
    const std::chrono::milliseconds patience;
    bool isLibraryStarted = false;
};

}  // namespace kiv::kivctl

#endif
