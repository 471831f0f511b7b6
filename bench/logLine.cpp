// One line of the log: with LogWrapper to each of its writers, for the levels that are kept in
// memory as well and for those that aren't, beside what others do to write or format such a line.

#include <android/log.h>
#include <benchmark/benchmark.h>

#include <cstdio>
#include <memory>
#include <thread>

#include "LogWrapper.h"
#include "ModemEmulator.h"
#ifdef KIVR_BENCH_SPDLOG
#include <spdlog/sinks/null_sink.h>
#include <spdlog/spdlog.h>
#endif

namespace kiv {

namespace {

constexpr const char* kFormat = "file descriptor '%d' is processing events of profile %s";
constexpr const char* kText = "TechType=3GPP,ProfileId=12,ApnName=internet";

enum class Output { None, Adb, Diag };

void measureLine(benchmark::State& state, Output output, LogLevel level) {
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    __android_log_set_logger([](const __android_logger_data*, const char*) {});
    std::unique_ptr<LogWriter> writer;
    if (output == Output::Adb) {
        writer = std::make_unique<AdbWriter>();
    } else if (output == Output::Diag) {
        writer = std::make_unique<DiagWriter>();
    }
    LogWrapper::getInstance().setLogWriter(std::move(writer));
    int number = 0;
    for (auto _ : state) {
        LogWrapper::getInstance().log(level, kLogTag, kFormat, ++number, kText);
        if (output == Output::Diag && number % 1000 == 0) {
            // The emulated diagnostic log keeps every line.
            state.PauseTiming();
            emulator::ModemEmulator::getInstance().takeDiagLines();
            state.ResumeTiming();
        }
    }
    LogWrapper::getInstance().setLogWriter(nullptr);
}

void measureAndroidLog(benchmark::State& state) {
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    __android_log_set_logger([](const __android_logger_data*, const char*) {});
    int number = 0;
    for (auto _ : state) {
        __android_log_print(ANDROID_LOG_INFO, kLogTag, kFormat, ++number, kText);
    }
}

void measureSnprintf(benchmark::State& state) {
    char line[512];
    int number = 0;
    for (auto _ : state) {
        std::snprintf(line, sizeof(line), kFormat, ++number, kText);
        benchmark::DoNotOptimize(line[0]);
    }
}

/// A process that never had a second thread is spared what locks and counts cost in any other.
[[maybe_unused]] const bool kHadThreads = [] {
    std::thread([] {}).join();
    return true;
}();

#ifdef KIVR_BENCH_SPDLOG
void measureSpdlog(benchmark::State& state) {
    spdlog::logger logger("KIV", std::make_shared<spdlog::sinks::null_sink_mt>());
    int number = 0;
    for (auto _ : state) {
        logger.info("file descriptor '{}' is processing events of profile {}", ++number, kText);
    }
}
BENCHMARK(measureSpdlog)->Name("line/spdlog to nowhere");
#endif

BENCHMARK_CAPTURE(measureLine, adb, Output::Adb, LogLevel::INFO)->Name("line/liblog");
BENCHMARK_CAPTURE(measureLine, adbKept, Output::Adb, LogLevel::EVENT)->Name("line/liblog, kept");
BENCHMARK_CAPTURE(measureLine, diag, Output::Diag, LogLevel::INFO)->Name("line/diag");
BENCHMARK_CAPTURE(measureLine, diagKept, Output::Diag, LogLevel::EVENT)->Name("line/diag, kept");
BENCHMARK_CAPTURE(measureLine, kept, Output::None, LogLevel::EVENT)->Name("line/kept only");
BENCHMARK(measureAndroidLog)->Name("line/bare __android_log_print");
BENCHMARK(measureSnprintf)->Name("line/snprintf");

}  // namespace

}  // namespace kiv
