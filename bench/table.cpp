// What grows with the number of profiles:
//   filter/WHAT/N   a filter that no profile passes, through Manager
//   loop/WHAT/N     a hand-written loop that compares the same fields in a vector
//   refresh/N       all profiles read from the modem; with how many requests
// A filter for a name stops at the name of each profile, as does one for a part of a name; one for
// everything looks at all settings that it can hold, and fails at the last.

#include <benchmark/benchmark.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "LoadedLibrary.h"

namespace kiv::bench {

namespace {

constexpr unsigned kTable = 255;  ///< of one technology
constexpr const char* kPartOfName = "mnc001.mcc262";

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
    filter.setApnName(kPartOfName);
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

/// What the loop compares.
struct Plain {
    TechType techType;
    std::optional<std::string> apnName;
    std::optional<std::string> profileName;
    std::optional<std::string> password;
    std::optional<uint64_t> apnTypesMask;
    std::optional<IPType> homeIPType;
    std::optional<bool> isEmergencySupported;
};

std::vector<Plain> plainTable(int64_t count) {
    std::vector<Plain> table;
    for (unsigned i = 0; i < static_cast<unsigned>(count); ++i) {
        const bool is3gpp = i < kTable;
        Plain plain{};
        plain.techType = is3gpp ? TechType::Tech3gpp : TechType::Tech3gpp2;
        plain.apnName = LoadedLibrary::apnName(is3gpp ? i : i - kTable);
        plain.apnTypesMask = 1;
        if (is3gpp) {
            plain.password = "password";
            plain.homeIPType = IPType::V4V6;
        }
        table.push_back(plain);
    }
    return table;
}

bool equalsLowered(const std::string& name, std::string_view wanted) {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
    return std::equal(name.begin(), name.end(), wanted.begin(), wanted.end(),
                      [&](char mine, char asked) { return mine == lower(asked); });
}

void measureNameLoop(benchmark::State& state) {
    const auto table = plainTable(state.range(0));
    const std::string wanted = filterForName().getApnName();
    for (auto _ : state) {
        size_t found = 0;
        for (const Plain& plain : table) {
            found += plain.apnName && equalsLowered(*plain.apnName, wanted);
        }
        benchmark::DoNotOptimize(found);
    }
}

void measurePartLoop(benchmark::State& state) {
    const auto table = plainTable(state.range(0));
    const std::string wanted = filterForPart().getApnName();
    for (auto _ : state) {
        size_t found = 0;
        for (const Plain& plain : table) {
            found += plain.apnName && plain.apnName->find(wanted) != std::string::npos;
        }
        benchmark::DoNotOptimize(found);
    }
}

void measureEverythingLoop(benchmark::State& state) {
    const auto table = plainTable(state.range(0));
    const std::string name = kPartOfName;
    const std::string password = "password";
    for (auto _ : state) {
        size_t found = 0;
        for (const Plain& plain : table) {
            found += plain.apnName && plain.apnName->find(name) != std::string::npos &&
                     plain.apnTypesMask == 1U && plain.password == password &&
                     plain.techType == TechType::Tech3gpp && plain.profileName != "kiv_profile" &&
                     plain.profileName != "kiv_profile_ia" && plain.homeIPType == IPType::V4V6 &&
                     plain.isEmergencySupported == true;
        }
        benchmark::DoNotOptimize(found);
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
    add("loop/name", measureNameLoop);
    add("loop/part", measurePartLoop);
    add("loop/everything", measureEverythingLoop);
    add("refresh", measureRefresh);
    return true;
}();

}  // namespace

}  // namespace kiv::bench
