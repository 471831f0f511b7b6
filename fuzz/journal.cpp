// A journal that is to be replayed: it is refused, or each of its requests can be compared.

#include <sstream>

#include "FuzzInput.h"
#include "Replay.h"

using namespace kiv::emulator;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::istringstream text(std::string(reinterpret_cast<const char*>(data), size));
    try {
        const auto lines = readJournal(text);
        Replay replay("journal", lines, {});
        while (const RecordedLine* line = replay.next()) {
            const Request request{.messageId = line->messageId,
                                  .bytes = std::vector<std::byte>(size)};
            if (line->direction == "request") {
                replay.isAsRecorded(*line, request);
            }
            replay.advance();
        }
    } catch (const ReplayError&) {
    }
    return 0;
}
