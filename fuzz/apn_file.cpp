// Any text as an APN file.

#include "ApnFile.h"
#include "FuzzInput.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    try {
        kiv::kivctl::parseApnFile("file", kiv::fuzz::FuzzInput(data, size).takeText(size));
    } catch (const kiv::kivctl::ApnFileError&) {
        // Refused, as most are.
    }
    return 0;
}
