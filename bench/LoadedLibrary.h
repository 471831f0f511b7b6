#ifndef BENCH_LOADEDLIBRARY_H
#define BENCH_LOADEDLIBRARY_H

#include <memory>
#include <string>

#include "Manager.h"
#include "ModemEmulator.h"

namespace kiv::bench {

/// What is measured: the library on an emulated modem that answers at once, with so many profiles
/// in its cache. All log lines, the least important too, go to liblog, and are discarded behind it.
class LoadedLibrary {
public:
    explicit LoadedLibrary(unsigned profiles3gpp, unsigned profiles3gpp2 = 0);

    Manager& manager() { return Manager::getInstance(); }
    emulator::ModemEmulator& modem() { return emulator::ModemEmulator::getInstance(); }

    /// A key to the profile of that number.
    std::shared_ptr<IProfileKey> key(unsigned number);
    /// Starts the library anew; its cache is empty until the next refresh.
    void restart();
    /// Returns when the library has heard of every change that it made.
    void settle();

    /// The APN of the profile of that number, counted from 0.
    static std::string apnName(unsigned number);
    /// A filter that this profile alone passes.
    static FilterProfileParams filterFor(unsigned number);
    /// What a client would ask of a profile.
    static ProfileParams settings(const std::string& apnName);
};

/// Has liblog discard what it is given, whatever its priority.
void discardLog();

}  // namespace kiv::bench

#endif
