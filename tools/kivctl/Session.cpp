#include "Session.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <utility>

#include "Failure.h"
#include "Manager.h"
#include "Text.h"

namespace kiv::kivctl {

using emulator::ModemEmulator;
using std::chrono::milliseconds;

namespace {

/// What passes between two steps: time enough for a modem that comes back soon.
constexpr milliseconds kPause{1000};

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

Session::Session(SessionOptions chosen) : options(std::move(chosen)) {
    if (options.scenario) {
        for (emulator::Fault& fault : options.scenario->faults) {
            fault.struck = struck.emplace_back(std::make_shared<std::atomic<unsigned>>(0));
        }
    }
}

Session::~Session() { modem().finishJournal(); }

void Session::open() {
    if (modem().isRunning() && isLibraryStarted) {
        return;
    }
    if (options.replacesState && !options.stateFile.empty()) {
        const std::string target = targetOf(options.stateFile);
        lock.emplace(target);
        protectSecrets(target);
    }
    // What another session left in this process.
    deliver();
    modem().stop();
    deliver();
    if (options.scenario && !modem().useVirtualClock(true)) {
        throw std::logic_error("the modem runs already");
    }
    protectSecrets(options.journalFile);
    if (!options.journalFile.empty() &&
        !modem().startJournal(options.journalFile, options.showSecrets)) {
        throw Failure(kCannotWrite, options.journalFile + ": " + std::strerror(errno));
    }
    modem().factoryReset();
    fill();
    powerOn();
}

void Session::renew() {
    // Echoes that were not delivered would be taken for echoes of the next modem's changes.
    settle();
    if (!options.scenario) {
        modem().factoryReset();
        modem().installFactoryProfiles();
        Manager::getInstance().refresh(PDCRefreshStatus::Complete);
        return;
    }
    modem().stop();
    settle();
    modem().factoryReset();
    modem().installFactoryProfiles();
    powerOn();
}

void Session::fill() {
    const std::string file = options.stateFile.empty() ? "" : targetOf(options.stateFile);
    std::error_code ignored;
    if (file.empty() ||
        std::filesystem::status(file, ignored).type() == std::filesystem::file_type::not_found) {
        modem().installFactoryProfiles();
        return;
    }
    std::string error;
    if (!modem().loadState(file, error)) {
        throw Failure(kCannotRead, withoutContent(error));
    }
}

void Session::powerOn() {
    Manager& manager = Manager::getInstance();
    if (scenario()) {
        modem().play(*scenario());
    }
    modem().start();
    if (!isLibraryStarted) {
        manager.init(options.bindValue, true);
        isLibraryStarted = true;
    }
    const auto isRegistered = [](milliseconds span) {
        return modem().waitForRegisteredClient(span);
    };
    if (scenario()) {
        letTimePass(options.patience, [&] { return isRegistered(milliseconds(0)); });
    }
    if (scenario() ? !isRegistered(milliseconds(0)) : !waitFor(isRegistered)) {
        throw Failure(kModemUnreachable, "the library has not registered with the modem within " +
                                             std::to_string(options.patience.count()) + " ms");
    }
    manager.refresh(PDCRefreshStatus::Complete);
}

void Session::save() {
    std::string error;
    if (options.replacesState && !options.stateFile.empty() &&
        !modem().saveState(targetOf(options.stateFile), error)) {
        throw Failure(kCannotWrite, error);
    }
}

void Session::pause() {
    if (scenario()) {
        settle();
    }
}

void Session::settle() {
    if (scenario()) {
        letTimePass(kPause, [] { return false; });
    } else {
        deliver();
    }
}

void Session::finish() {
    settle();
    if (!modem().finishJournal()) {
        throw Failure(kCannotWrite,
                      options.journalFile + ": not all of the journal could be written");
    }
}

void Session::mark(const std::string& text) { modem().markJournal(text); }

std::vector<unsigned> Session::strikes() const {
    std::vector<unsigned> counts;
    for (const auto& count : struck) {
        counts.push_back(*count);
    }
    return counts;
}

void Session::letTimePass(milliseconds span, const std::function<bool()>& isEnough) {
    deliver();
    const auto end = modem().now() + span;
    while (modem().now() < end && !isEnough()) {
        modem().passTime(end - modem().now());
        deliver();
    }
}

void Session::deliver() {
    // What the library does about it may lead to more, but not for ever: it starts nothing itself.
    constexpr int kRounds = 4;
    for (int round = 0; round < (scenario() ? kRounds : 1); ++round) {
        if (!waitFor([](milliseconds span) { return modem().waitForDeliveries(span); })) {
            throw Failure(kModemUnreachable, "the modem has not delivered its indications within " +
                                                 std::to_string(options.patience.count()) + " ms");
        }
        if (scenario() && isLibraryStarted) {
            passThroughLibrary();
        }
    }
}

/// Waits in short spans, so that a signal is heeded soon.
bool Session::waitFor(const std::function<bool(milliseconds)>& wait) {
    constexpr milliseconds kSpan{100};
    for (milliseconds left = options.patience; left.count() > 0; left -= kSpan) {
        endIfInterrupted();
        if (wait(std::min(left, kSpan))) {
            return true;
        }
    }
    return false;
}

}  // namespace kiv::kivctl
