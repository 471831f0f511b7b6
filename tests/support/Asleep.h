#ifndef TESTS_SUPPORT_ASLEEP_H
#define TESTS_SUPPORT_ASLEEP_H

#include <unistd.h>

#include <fstream>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <utility>

namespace kiv::test {

/// Starts the work on a thread of its own, and returns when that sleeps, for whatever it waits, or
/// has ended.
template <class Work>
std::jthread startUntilAsleep(Work work) {
    const auto begun = std::make_shared<std::promise<pid_t>>();
    std::jthread thread([begun, work = std::move(work)]() mutable {
        begun->set_value(gettid());
        work();
    });
    const std::string task = "/proc/self/task/" + std::to_string(begun->get_future().get());
    std::string state;
    while (state != "S" && std::ifstream(task + "/stat") >> state >> state >> state) {
    }
    return thread;
}

}  // namespace kiv::test

#endif
