#include <csignal>
#include <cstdio>

#include "CommandLine.h"
#include "Output.h"

int main(int argc, char** argv) {
    using namespace kiv::kivctl;
    std::signal(SIGPIPE, SIG_IGN);  // a closed pipe is a failed write
    try {
        Output output(claimStandardOutput(), stderr);
        return runKivctl(argc, argv, output);
    } catch (const OutputError& error) {
        std::fprintf(stderr, "kivctl: %s\n", error.what());
        return kCannotWrite;
    }
}
