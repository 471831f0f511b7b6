// Any text as an APN file, checked as check does: each operator gets its entries and their reasons.

#include "ApnFile.h"
#include "Failure.h"
#include "FuzzInput.h"
#include "Sim.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace kiv;
    using namespace kiv::kivctl;
    try {
        const ApnFile file = parseApnFile("file", fuzz::FuzzInput(data, size).takeText(size));
        for (const Sim& sim : simsOf(file)) {
            const auto candidates = candidatesFor(file, sim);
            fuzz::require(!candidates.empty());
            const Need need{{ApnTypes::IA, ApnTypes::DEFAULT}, true};
            const Choice choice = choose(candidates, need, sim);
            for (const Candidate& one : candidates) {
                const bool isTaken = explain(one, choice, need, sim).substr(0, 3) == "yes";
                fuzz::require(isTaken == (one.entry == choice.entry));
            }
            alternativesTo(file, sim);
        }
    } catch (const Failure& failure) {
        fuzz::require(failure.status == kCannotRead);  // refused, as most are
    }
    return 0;
}
