// Any arguments, one a line: they are taken, or the status says that they were not.

#include <string>

#include "CommandLine.h"
#include "FuzzInput.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace kiv::kivctl;
    std::string text(kiv::fuzz::FuzzInput(data, size).takeText(size));
    std::vector<const char*> arguments = {"kivctl"};
    for (size_t begin = 0; begin < text.size();) {
        const size_t end = std::min(text.find('\n', begin), text.size());
        text[end] = '\0';
        arguments.push_back(text.data() + begin);
        begin = end + 1;
    }
    static std::FILE* const none = std::fopen("/dev/null", "w");
    Output output(none, none);
    try {
        const auto read =
            parseCommandLine(static_cast<int>(arguments.size()), arguments.data(), output);
        kiv::fuzz::require(!read || read->options->session.bindValue >= 0);
    } catch (const Failure& failure) {
        kiv::fuzz::require(failure.status == kUsage);
    }
    return 0;
}
