#ifndef TESTS_SUPPORT_LOGCAPTURE_H
#define TESTS_SUPPORT_LOGCAPTURE_H

#include <android/log.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

namespace kiv::test {

/// Collects what goes to the Android log while it lives. One at a time.
class LogCapture {
public:
    struct Line {
        int priority;
        std::string tag;
        std::string text;
    };

    LogCapture() {
        clear();
        __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
        __android_log_set_logger([](const __android_logger_data* data, const char* text) {
            State& state = shared();
            std::lock_guard lock(state.mutex);
            state.lines.push_back({data->priority, data->tag ? data->tag : "", text});
            state.added.notify_all();
        });
    }
    ~LogCapture() {
        __android_log_set_logger([](const __android_logger_data*, const char*) {});
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<Line> lines() const {
        std::lock_guard lock(shared().mutex);
        return shared().lines;
    }

    std::vector<std::string> texts() const {
        std::vector<std::string> result;
        for (const Line& line : lines()) {
            result.push_back(line.text);
        }
        return result;
    }

    size_t count(const std::string& text) const {
        const auto all = texts();
        return static_cast<size_t>(std::count(all.begin(), all.end(), text));
    }

    bool contains(const std::string& text) const { return count(text) > 0; }

    /// Waits until the line has been written as often; for good, so that ctest's time-out judges.
    void waitFor(const std::string& text, long times = 1) const {
        State& state = shared();
        std::unique_lock lock(state.mutex);
        const auto isIt = [&](const Line& line) { return line.text == text; };
        state.added.wait(lock, [&] {
            return std::count_if(state.lines.begin(), state.lines.end(), isIt) >= times;
        });
    }

    void clear() {
        std::lock_guard lock(shared().mutex);
        shared().lines.clear();
    }

private:
    struct State {
        std::mutex mutex;
        std::condition_variable added;
        std::vector<Line> lines;
    };
    /// Never destroyed: the library logs until the process ends.
    static State& shared() {
        static State& state = *new State;
        return state;
    }
};

}  // namespace kiv::test

#endif
