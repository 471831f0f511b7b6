// What grows with the number of profiles:
//   filter/WHAT/N   a filter that no profile passes, through Manager
//   refresh/N       all profiles read from the modem; with how many requests
// A filter for a name stops at the name of each profile, as does one for a part of a name; one for
// everything looks at all settings that it can hold, and fails at the last.

#include <benchmark/benchmark.h>

#include <algorithm>

#include "LoadedLibrary.h"

namespace kiv::bench {

namespace {

constexpr unsigned kTable = 255;  ///< of one technology

/// Half of the profiles, at most, of the second technology.
LoadedLibrary load(int64_t count) {
    const auto profiles = static_cast<unsigned>(count);
    const unsigned first = std::min(profiles, kTable);
    return LoadedLibrary(first, profiles - first);
}

FilterProfileParams filterForName() {
    FilterProfileParams filter;
    filter.setApnName("Internet0.mnc001.mcc262.none");
    return filter;
}

FilterProfileParams filterForPart() {
    FilterProfileParams filter;
    filter.setApnName("mnc001.mcc310");
    filter.addFilterMatchCriteria(toMask(FilterMatchType::ApnNameSubset));
    return filter;
}

FilterProfileParams filterForEverything() {
    FilterProfileParams filter;
    filter.setApnName("mnc001.mcc262");
    filter.addFilterMatchCriteria(toMask(FilterMatchType::ApnNameSubset));
    filter.setApnTypesMask(toMask(ApnTypes::DEFAULT));
    filter.setFilterByIsKivProfile(false);
    filter.setHomeIPType(IPType::V4V6);
    filter.setPassword("password");
    filter.setIsEmergencySupported(true);
    return filter;
}

void measureFilter(benchmark::State& state, const FilterProfileParams& filter) {
    LoadedLibrary library = load(state.range(0));
    for (auto _ : state) {
        if (!library.manager().filter(filter).empty()) {
            state.SkipWithError("a profile passes");
        }
    }
}

void measureRefresh(benchmark::State& state) {
    LoadedLibrary library = load(state.range(0));
    const auto taken = [&] { return library.modem().requests().back().number; };
    const uint64_t before = taken();
    uint64_t times = 0;
    for (auto _ : state) {
        library.manager().refresh(PDCRefreshStatus::Complete);
        ++times;
    }
    state.counters["requests"] = static_cast<double>(taken() - before) / static_cast<double>(times);
}

[[maybe_unused]] const bool kRegistered = [] {
    const auto add = [](const char* name, auto... how) {
        benchmark::RegisterBenchmark(name, how...)
            ->ArgsProduct({{1, 30, 64, 128, 255, 382, 510}})
            ->MeasureProcessCPUTime()
            ->UseRealTime();
    };
    add("filter/name", measureFilter, filterForName());
    add("filter/part", measureFilter, filterForPart());
    add("filter/everything", measureFilter, filterForEverything());
    add("refresh", measureRefresh);
    return true;
}();

}  // namespace

}  // namespace kiv::bench
