#ifndef TOOLS_KIVCTL_SESSION_H
#define TOOLS_KIVCTL_SESSION_H

#include <chrono>
#include <stdexcept>

namespace kiv::kivctl {

/// The modem, or the library's way to it, did not get ready in time.
struct ModemUnreachable : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// The emulated modem and the library on it. The library is started with the first modem and then
/// lives through the modem's restarts, as on a phone.
class Session {
public:
    explicit Session(int bindValue, std::chrono::milliseconds patience = std::chrono::seconds(5))
        : bindValue(bindValue), patience(patience) {}

    /// Powers the modem off and brings it back to its factory state. No key may be held.
    void resetModem();

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
