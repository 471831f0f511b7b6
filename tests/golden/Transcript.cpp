#include "Transcript.h"

#include <android/log.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <regex>
#include <set>
#include <sstream>
#include <thread>
#include <utility>

namespace kiv::test {
namespace {

struct Line {
    std::string thread, level, text;
};

struct State {
    std::mutex mutex;
    std::vector<Line> lines;
    std::atomic<size_t> count{0};
    std::atomic<bool> held{false};
    std::atomic<bool> isWaiting{false};  ///< the worker, for held to end
    std::string awaited;
    std::function<void()> atAwaited;
};
/// Never destroyed: the library logs until the process ends.
State& shared() {
    static State& state = *new State;
    return state;
}

std::string read(const std::filesystem::path& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// The threads that are neither the client's nor the modem's.
std::set<std::string> otherThreads() {
    std::set<std::string> threads;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        const std::string number = task.path().filename();
        if (number != std::to_string(getpid()) && read(task.path() / "comm").find("modem") != 0) {
            threads.insert(number);
        }
    }
    return threads;
}

bool isReadable(int fd) {
    pollfd descriptor{fd, POLLIN, 0};
    return poll(&descriptor, 1, 0) != 0;
}

/// Whether the thread waits for events, and has none.
bool isAsleep(const std::string& thread) {
    long call = 0;
    int epoll = -1;
    const auto look = [&] {
        std::istringstream in(read("/proc/self/task/" + thread + "/syscall"));
        in >> call >> std::hex >> epoll;
        return in && (call == SYS_epoll_pwait
#ifdef SYS_epoll_wait
                      || call == SYS_epoll_wait
#endif
                     );
    };
    // Once more, for a thread that was about to wake may have read the event since.
    return look() && !isReadable(epoll) && look() && !isReadable(epoll);
}

/// Those that a sanitizer keeps for itself, from the first thread of the process on.
const std::set<std::string>& foreignThreads() {
    static const std::set<std::string> threads = (std::thread([] {}).join(), otherThreads());
    return threads;
}

std::string threadName() {
    if (gettid() == getpid()) {
        return "client";
    }
    char name[16];
    pthread_getname_np(pthread_self(), name, sizeof(name));
    return std::string(name).find("modem") == 0 ? "modem" : "worker";
}

void take(const __android_logger_data* data, const char* text) {
    State& state = shared();
    const std::string thread = threadName();
    if (thread == "client") {
        if (state.atAwaited && std::string(text).find(state.awaited) == 0) {
            std::exchange(state.atAwaited, nullptr)();
        }
        Transcript::waitForRest();
    } else if (thread == "worker") {
        while (state.held) {
            state.isWaiting = true;
            std::this_thread::yield();
        }
        modem().waitForDeliveries(kPatience);
    }
    static const std::map<int, std::string> levels = {{ANDROID_LOG_VERBOSE, "VERBOSE"},
                                                      {ANDROID_LOG_DEBUG, "DEBUG"},
                                                      {ANDROID_LOG_INFO, "INFO"},
                                                      {ANDROID_LOG_ERROR, "ERROR"},
                                                      {ANDROID_LOG_FATAL, "FATAL"}};
    std::lock_guard lock(state.mutex);
    state.lines.push_back({thread, levels.at(data->priority), text});
    ++state.count;
}

/// Names the level of lines that are kept for dumps.
void tellEvents(std::vector<Line>& lines) {
    std::vector<std::string> kept = Manager::getInstance().dump();
    std::for_each(lines.rbegin(), lines.rend(), [&](Line& line) {
        const std::string end = " [KIV]" + line.text;
        const std::string& last = kept.back();
        const bool isKept =
            last.size() > end.size() && last.substr(last.size() - end.size()) == end;
        if (isKept) {
            kept.pop_back();
        }
        if (isKept != (line.level == "ERROR")) {
            line.level = line.level == "INFO" ? "EVENT" : line.level + (isKept ? "+" : "-");
        }
    });
}

template <class Function>
void replaceEach(std::string& text, const std::string& pattern, Function replacement) {
    static std::map<std::string, std::regex> compiled;
    const std::regex& regex = compiled.try_emplace(pattern, pattern).first->second;
    std::smatch found;
    std::string result;
    while (std::regex_search(text, found, regex)) {
        result += found.prefix().str() + replacement(found);
        text = found.suffix().str();
    }
    text.insert(0, result);
}

}  // namespace

Transcript::Transcript() {
    foreignThreads();
    __android_log_set_logger([](const __android_logger_data*, const char*) {});
    modem().stop();
    modem().factoryReset();
    modem().useVirtualClock(true);
    modem().start();
    Manager& manager = Manager::getInstance();
    manager.init(0, true);
    EXPECT_TRUE(modem().waitForRegisteredClient(kPatience));
    AddProfileParams params(false, TechType::Tech3gpp, false);
    const std::string probe = manager.addProfile(params)->dump();
    firstToken = std::stoull(probe.substr(probe.find('=') + 1)) + 1;
    waitForRest();
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    __android_log_set_logger(take);
}

Transcript::~Transcript() {
    __android_log_set_logger([](const __android_logger_data*, const char*) {});
    modem().stop();
    modem().factoryReset();
}

void Transcript::step(const std::string& heading, const std::function<void()>& action) {
    State& state = shared();
    const auto takeLines = [&] {
        waitForRest();
        std::lock_guard lock(state.mutex);
        return std::exchange(state.lines, {});
    };
    takeLines();
    action();
    std::vector<Line> lines = takeLines();
    tellEvents(lines);
    text += "# " + heading + "\n";
    for (Line& line : lines) {
        line.level.resize(8, ' ');
        append(line.thread + " " + line.level, line.text);
    }
}

void Transcript::append(const std::string& label, const std::string& line) {
    text += label + " " + masked(line) + "\n";
}

void Transcript::atLine(const std::string& beginning, const std::function<void()>& action) {
    shared().awaited = beginning;
    shared().atAwaited = action;
}

void Transcript::together(const std::function<void()>& action) {
    shared().isWaiting = false;
    shared().held = true;
    action();
    modem().waitForDeliveries(kPatience);
    shared().held = false;
}

void Transcript::waitUntilHeld() {
    while (!shared().isWaiting) {
        std::this_thread::yield();
    }
}

void Transcript::waitForRest() {
    const auto activity = [] { return shared().count + modem().callbacksSoFar(); };
    for (uint64_t before = 0, rounds = 0; rounds < 2; ++rounds) {
        modem().waitForDeliveries(kPatience);
        for (const std::string& thread : otherThreads()) {
            while (foreignThreads().count(thread) == 0 && otherThreads().count(thread) > 0 &&
                   !isAsleep(thread)) {
                std::this_thread::yield();
            }
        }
        const uint64_t now = activity();
        rounds = now == before ? rounds : 0;
        before = now;
    }
}

std::string Transcript::masked(std::string line) {
    const auto relative = [this](const std::string& token) {
        return std::to_string(static_cast<int64_t>(std::stoull(token) - firstToken));
    };
    replaceEach(line, "0x[0-9a-f]{6,}", [](const auto&) { return "PTR"; });
    replaceEach(line, "(descriptor '|handling \\d+ for |epollFd:|Handler\\(int |fd=)(\\d+)",
                [this](const auto& found) {
                    const auto next = descriptors.size() + 1;
                    const auto number = descriptors.emplace(found.str(2), next).first->second;
                    return found.str(1) + "fd" + std::to_string(number);
                });
    // A registration's request prints the token twice, with nothing between.
    replaceEach(line, "(Register .*token=)(\\d+)\\2$", [&](const auto& found) {
        return found.str(1) + "(" + relative(found.str(2)) + ")" + relative(found.str(2));
    });
    replaceEach(line, "(token=|Release |registerExpirationListener |^  (?=\\d+: ))(\\d+)",
                [&](const auto& found) { return found.str(1) + relative(found.str(2)); });
    replaceEach(line, "\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3}",
                [](const auto&) { return "TIME"; });
    // Compilers spell the types of a signature in two ways.
    replaceEach(line, " \\*,", [](const auto&) { return "*,"; });
    replaceEach(line, " \\*\\)", [](const auto&) { return "*)"; });
    return line;
}

void Transcript::finish(const std::string& name) const {
    const std::string path = std::string(KIVR_GOLDEN_FOLDER) + "/" + name + ".log";
    if (std::getenv("KIVR_RENEW_GOLDEN")) {
        std::ofstream(path) << text;
    }
    const std::string kept = read(path);
    const auto [at, keptAt] = std::mismatch(text.begin(), text.end(), kept.begin(), kept.end());
    if (at != text.end() || keptAt != kept.end()) {
        const auto number = std::count(text.begin(), at, '\n') + 1;
        const auto lineAt = [](const std::string& all, size_t place) {
            const size_t begin = place == 0 ? 0 : all.rfind('\n', place - 1) + 1;
            return all.substr(begin, all.find('\n', place) - begin);
        };
        const auto place = static_cast<size_t>(at - text.begin());
        ADD_FAILURE() << path << ":" << number
                      << ": the log differs from what is kept\n  kept:   " << lineAt(kept, place)
                      << "\n  logged: " << lineAt(text, place)
                      << "\nscript/golden renews it; read what has changed.";
    }
}

}  // namespace kiv::test
