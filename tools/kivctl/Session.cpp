#include "Session.h"

#include <filesystem>
#include <string>
#include <thread>
#include <utility>

#include "Manager.h"
#include "Output.h"

namespace kiv::kivctl {

using emulator::ModemEmulator;

namespace {

/// What passes between two steps: time enough for a modem that comes back soon.
constexpr std::chrono::milliseconds kPause{1000};

ModemEmulator& modem() { return ModemEmulator::getInstance(); }

/// Returns when the library's worker has handled all that it was told. It takes a few indications
/// between two requests, so that so many requests let some dozens of them pass.
void passThroughLibrary() {
    constexpr int kRequests = 12;
    for (int request = 0; request < kRequests; ++request) {
        Manager::getInstance().match(FilterProfileParams{}, nullptr);
    }
}

}  // namespace

Session::~Session() { watchCalls(nullptr); }

void Session::usePlay(emulator::Scenario chosen) {
    if (!modem().useVirtualClock(true)) {
        throw std::logic_error("the modem runs already");
    }
    scenario = std::move(chosen);
    watchCalls(&beforeCall);
}

void Session::rest() {
    modem().waitForDeliveries(patience);
    if (!isLibraryStarted || callbacksAtRest == modem().callbacksSoFar()) {
        return;
    }
    // On another thread, since the log holds a lock of its own while it tells of a call.
    std::thread([this] {
        while (callbacksAtRest != modem().callbacksSoFar()) {
            callbacksAtRest = modem().callbacksSoFar();
            passThroughLibrary();
            modem().waitForDeliveries(patience);
        }
    }).join();
}

void Session::resetModem(const std::string& stateFile) {
    // Echoes that were not delivered would be taken for echoes of the next modem's changes.
    settle();
    modem().stop();
    settle();
    modem().factoryReset();
    std::error_code ignored;
    if (stateFile.empty() || std::filesystem::symlink_status(stateFile, ignored).type() ==
                                 std::filesystem::file_type::not_found) {
        modem().installFactoryProfiles();
        return;
    }
    std::string error;
    if (!modem().loadState(stateFile, error)) {
        throw StateUnreadable(error);
    }
}

void Session::saveModem(const std::string& stateFile) const {
    std::string error;
    if (!stateFile.empty() && !modem().saveState(stateFile, error)) {
        throw OutputError(error);
    }
}

void Session::powerOn() {
    Manager& manager = Manager::getInstance();
    if (scenario) {
        modem().play(*scenario);
    }
    modem().start();
    if (!isLibraryStarted) {
        manager.init(bindValue, true);
        isLibraryStarted = true;
    }
    if (!waitForLibrary()) {
        throw ModemUnreachable("the library has not registered with the modem within " +
                               std::to_string(patience.count()) + " ms");
    }
    manager.refresh(PDCRefreshStatus::Complete);
}

bool Session::waitForLibrary() const {
    if (!scenario) {
        return modem().waitForRegisteredClient(patience);
    }
    const auto isReady = [] {
        return modem().waitForRegisteredClient(std::chrono::milliseconds(0));
    };
    letTimePass(patience, isReady);
    return isReady();
}

void Session::settle() const {
    if (scenario) {
        letTimePass(kPause, [] { return false; });
    } else {
        deliver();
    }
}

void Session::letTimePass(std::chrono::milliseconds span,
                          const std::function<bool()>& isEnough) const {
    deliver();
    const auto end = modem().now() + span;
    while (modem().now() < end && !isEnough()) {
        modem().passTime(end - modem().now());
        deliver();
    }
}

void Session::deliver() const {
    // What the library does about it may lead to more, but not for ever: it starts nothing itself.
    constexpr int kRounds = 4;
    for (int round = 0; round < (scenario ? kRounds : 1); ++round) {
        if (!modem().waitForDeliveries(patience)) {
            throw ModemUnreachable("the modem has not delivered its indications within " +
                                   std::to_string(patience.count()) + " ms");
        }
        if (scenario && isLibraryStarted) {
            passThroughLibrary();
        }
    }
}

}  // namespace kiv::kivctl
