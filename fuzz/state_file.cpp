// Any text as a state file. One that is taken is written in one way only.

#include "FuzzInput.h"
#include "Library.h"
#include "StateFile.h"

using namespace kiv::emulator;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    try {
        const auto text = kiv::fuzz::FuzzInput(data, size).takeText(size);
        const std::string saved = formatState("written", parseState("file", text));
        kiv::fuzz::require(formatState("again", parseState("written", saved)) == saved);
    } catch (const StateFileError& refused) {
        kiv::fuzz::require(std::string_view(refused.what()).substr(0, 5) == "file:");
    }
    return 0;
}
