// One look-up among 64 profiles, from the client's thread to the worker's and back:
//   roundTrip/getProfile/kivr     with the library
//   roundTrip/getProfile/X        the same look-up with contender X, without a log line
//   roundTrip/getProfile/X+lines  and with the lines that the library writes, straight to liblog
// and so for match. The floor is what the system asks for two thread switches.

#include <android/log.h>
#include <benchmark/benchmark.h>

#include <cinttypes>
#include <optional>
#include <string>
#include <unordered_map>

#include "LoadedLibrary.h"
#include "contenders/Contender.h"

namespace kiv::bench {

namespace {

constexpr unsigned kProfiles = 64;
constexpr unsigned kWanted = 40;

/// What any of the others would keep of the profiles.
class Table {
public:
    Table() {
        for (unsigned number = 0; number < kProfiles; ++number) {
            ProfileParams params;
            params.setApnName(LoadedLibrary::apnName(number));
            params.setUserName("user of " + params.getApnName());
            params.setPassword("password");
            params.setHomeIPType(IPType::V4V6);
            params.setRoamIPType(IPType::V4V6);
            params.setApnTypesMask(1);
            profiles.emplace(number, params);
        }
    }
    std::optional<ProfileParams> get(uint64_t token) const {
        const auto found = profiles.find(token);
        return found == profiles.end() ? std::nullopt : std::optional(found->second);
    }
    bool match(const FilterProfileParams& filter, uint64_t token) const {
        const auto found = profiles.find(token);
        return found != profiles.end() && found->second.getApnName() == filter.getApnName();
    }

private:
    std::unordered_map<uint64_t, ProfileParams> profiles;
};

/// The lines of one request, as anyone would write them who has the values at hand.
class Lines {
public:
    Lines(const char* operation, const char* type) : operation(operation), type(type) {}

    void asked(const std::string& parameters) const {
        print(ANDROID_LOG_INFO, "Manager::%s > %s 3GPP:%d token=%" PRIu64 "%s", operation, type, id,
              token, parameters.c_str());
    }
    void served(const std::string& parameters) const {
        print(ANDROID_LOG_VERBOSE, "there are %d file descriptor(s) with events pending", 1);
        print(ANDROID_LOG_VERBOSE, "processing event number: %d, handling %d for %d", 0, 1, 8);
        print(ANDROID_LOG_VERBOSE,
              "file descriptor '%d' is processing events [callback:%p, data:%p]", 8,
              static_cast<const void*>(operation), static_cast<const void*>(this));
        print(ANDROID_LOG_DEBUG, ":%d:%s", 77, "handleClientRequest");
        print(ANDROID_LOG_INFO, "Handling %s 3GPP:%d token=%" PRIu64 "%s", type, id, token,
              parameters.c_str());
    }
    void answered(const std::string& result) const {
        print(ANDROID_LOG_INFO, "Manager::%s < %s Success %s", operation, type, result.c_str());
    }

private:
    template <class... Values>
    static void print(int priority, const char* format, Values... values) {
        __android_log_print(priority, "KIV", format, values...);
    }

    const char* const operation;
    const char* const type;
    const int id = kWanted + 1;
    const uint64_t token = kWanted;
};

std::optional<ProfileParams> getProfile(Contender& contender, const Table& table, bool logs) {
    const Lines lines("getProfile", "Get");
    std::optional<ProfileParams> result;
    auto lookUp = [&] {
        if (logs) {
            lines.served("");
        }
        result = table.get(kWanted);
    };
    if (logs) {
        lines.asked("");
    }
    contender.run(Task(lookUp));
    if (logs) {
        lines.answered(result->dump());
    }
    return result;
}

bool match(Contender& contender, const Table& table, const FilterProfileParams& filter, bool logs) {
    const Lines lines("match", "Match");
    bool result = false;
    auto lookUp = [&] {
        if (logs) {
            lines.served(" " + filter.dump());
        }
        result = table.match(filter, kWanted);
    };
    if (logs) {
        lines.asked(" " + filter.dump());
    }
    contender.run(Task(lookUp));
    if (logs) {
        lines.answered(result ? "true" : "false");
    }
    return result;
}

void measureContender(benchmark::State& state, const NamedContender& named, bool matches,
                      bool logs) {
    discardLog();
    const auto contender = named.make();
    const Table table;
    const FilterProfileParams filter = LoadedLibrary::filterFor(kWanted);
    for (auto _ : state) {
        const bool found = matches ? match(*contender, table, filter, logs)
                                   : getProfile(*contender, table, logs).has_value();
        if (!found) {
            state.SkipWithError("not found");
        }
    }
}

void measureLibrary(benchmark::State& state, bool matches) {
    LoadedLibrary library(kProfiles);
    const auto key = library.key(kWanted);
    const FilterProfileParams filter = LoadedLibrary::filterFor(kWanted);
    for (auto _ : state) {
        const bool found = matches ? library.manager().match(filter, key)
                                   : library.manager().getProfile(key).has_value();
        if (!found) {
            state.SkipWithError("not found");
        }
    }
}

[[maybe_unused]] const bool kRegistered = [] {
    for (const bool matches : {false, true}) {
        const std::string name = matches ? "roundTrip/match/" : "roundTrip/getProfile/";
        const auto add = [](const std::string& fullName, auto... how) {
            benchmark::RegisterBenchmark(fullName.c_str(), how...)
                ->MeasureProcessCPUTime()
                ->UseRealTime();
        };
        add(name + "kivr", measureLibrary, matches);
        for (const NamedContender& contender : contenders()) {
            add(name + contender.name, measureContender, contender, matches, false);
            add(name + contender.name + "+lines", measureContender, contender, matches, true);
        }
    }
    return true;
}();

}  // namespace

}  // namespace kiv::bench
