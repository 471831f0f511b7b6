// Any text as a SIM: what is taken is read the same when it is written again.

#include "Sim.h"
#include "Failure.h"
#include "FuzzInput.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace kiv;
    using namespace kiv::kivctl;
    try {
        const Sim sim = parseSim(fuzz::FuzzInput(data, size).takeText(size));
        fuzz::require(!sim.plmn.empty() || sim.carrierId >= 0);
        fuzz::require(parseSim(sim.text()).text() == sim.text());
    } catch (const Failure& failure) {
        fuzz::require(failure.status == kUsage);
    }
    return 0;
}
