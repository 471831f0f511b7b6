// Client threads that each ask for one profile after another. For each number of threads: requests
// a second, what each takes of the processors' time, and how long a thread waits for one in the
// middle, in 99 of 100 cases and at most. The waits begin when each thread has been served a few
// times, which lets the system find pages for it.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <barrier>
#include <chrono>
#include <ctime>
#include <thread>
#include <vector>

#include "LoadedLibrary.h"

namespace kiv::bench {

namespace {

constexpr unsigned kProfiles = 64;
constexpr size_t kRequests = 51200;  // of all threads
constexpr size_t kUnmeasured = 20;   // of each thread at first

using Clock = std::chrono::steady_clock;

/// How long each request of one thread took, in microseconds.
std::vector<double> ask(Manager& manager, const std::shared_ptr<IProfileKey>& key, size_t times,
                        std::barrier<>& start) {
    std::vector<double> waits;
    waits.reserve(times);
    start.arrive_and_wait();
    for (size_t i = 0; i < kUnmeasured; ++i) {
        manager.getProfile(key);
    }
    auto before = Clock::now();
    for (size_t i = 0; i < times; ++i) {
        manager.getProfile(key);
        const auto after = Clock::now();
        waits.push_back(std::chrono::duration<double, std::micro>(after - before).count());
        before = after;
    }
    return waits;
}

/// What all threads of the process have used of the processors, in microseconds.
double processorTime() {
    timespec used{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
    return static_cast<double>(used.tv_sec) * 1e6 + static_cast<double>(used.tv_nsec) / 1e3;
}

void measureThreads(benchmark::State& state) {
    LoadedLibrary library(kProfiles);
    const auto count = static_cast<unsigned>(state.range(0));
    std::vector<double> all;
    double used = 0;
    for (auto _ : state) {
        std::vector<std::vector<double>> waits(count);
        std::vector<std::thread> threads;
        std::barrier<> start(count + 1);
        for (unsigned i = 0; i < count; ++i) {
            threads.emplace_back([&, i, key = library.key(i % kProfiles)] {
                waits[i] = ask(library.manager(), key, kRequests / count, start);
            });
        }
        start.arrive_and_wait();
        const auto before = Clock::now();
        const double usedBefore = processorTime();
        for (std::thread& thread : threads) {
            thread.join();
        }
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - before).count());
        used += processorTime() - usedBefore;
        for (const auto& one : waits) {
            all.insert(all.end(), one.begin(), one.end());
        }
    }
    std::sort(all.begin(), all.end());
    const double median = all[all.size() / 2];
    const size_t requests =
        all.size() + kUnmeasured * count * static_cast<size_t>(state.iterations());
    state.SetItemsProcessed(static_cast<int64_t>(requests));
    state.counters["processor_us"] = used / static_cast<double>(requests);
    state.counters["median_us"] = median;
    state.counters["p99_us"] = all[all.size() * 99 / 100];
    state.counters["longest_us"] = all.back();
    state.counters["longest_to_median"] = all.back() / median;
}

BENCHMARK(measureThreads)
    ->Name("threads")
    ->ArgsProduct({{1, 2, 8, 64, 256}})
    ->UseManualTime()
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

}  // namespace

}  // namespace kiv::bench
