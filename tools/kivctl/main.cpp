#include <cstdio>

#include "CommandLine.h"
#include "Files.h"

int main(int argc, char** argv) {
    using namespace kiv::kivctl;
    catchSignals();
    try {
        Output output(claimStandardOutput(), stderr);
        return runKivctl(argc, argv, output);
    } catch (const Failure& failure) {
        std::fprintf(stderr, "kivctl: %s\n", failure.what());
        return failure.status;
    }
}
