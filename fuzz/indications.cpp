// Any bytes as indications, on their way through the emulator into the library's worker.

#include "FuzzInput.h"
#include "Library.h"

using namespace kiv::fuzz;

/// The library keeps what it can't decode; that is meant.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() { return "leak:ravIndCb\n"; }

// An indication is its bytes, counted; one without bytes is of an unknown kind.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kiv::Manager& manager = library();
    FuzzInput input(data, size);
    for (int sent = 0; sent < 16 && !input.empty(); ++sent) {
        const auto bytes = input.takeCounted();
        modem().sendIndication(bytes.empty() ? 0xffff : RAV_WDS_PROFILE_CHANGED_IND_V01,
                               bytes.empty() ? input.take(4) : bytes);
    }
    require(modem().waitForDeliveries(std::chrono::minutes(1)));
    // Whatever came, the worker still answers, and reads the modem. A lie that is still queued may
    // take profiles out of the cache again, but there is an end to them.
    bool reads = false;
    for (int round = 0; round < 16 && !reads; ++round) {
        manager.refresh(kiv::PDCRefreshStatus::Complete);
        reads = !manager.filter({}).empty();
    }
    require(reads);
    return 0;
}
