#ifndef FUZZ_LIBRARY_H
#define FUZZ_LIBRARY_H

#include <android/log.h>

#include <chrono>
#include <cstdlib>

#include "Manager.h"
#include "ModemEmulator.h"

namespace kiv::fuzz {

inline emulator::ModemEmulator& modem() { return emulator::ModemEmulator::getInstance(); }

/// The library on an emulated modem with its factory profiles; started once, and silent.
inline Manager& library() {
    static Manager& manager = []() -> Manager& {
        __android_log_set_logger([](const __android_logger_data*, const char*) {});
        modem().installFactoryProfiles();
        modem().start();
        Manager& started = Manager::getInstance();
        started.init(0, true);
        require(modem().waitForRegisteredClient(std::chrono::minutes(1)));
        started.refresh(PDCRefreshStatus::Complete);
        return started;
    }();
    return manager;
}

}  // namespace kiv::fuzz

#endif
