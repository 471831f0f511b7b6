// A client that asks for a match beside others whose requests take 20 ms in the modem each. For 1,
// 3 and 8 of these: how long the client waits after the worker has begun to carry its request out,
// and how often a request was carried out before another one that was clearly there first. On the
// machine's clock.

#include <android/log.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "LoadedLibrary.h"

namespace kiv::bench {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kMatches = 1000;
constexpr std::chrono::milliseconds kInTheModem{20};
/// Between a client's line in the log and its place in the queue.
constexpr std::chrono::milliseconds kClearlyLater{5};

/// What the log tells of requests, each known by the text of its key.
class Queue {
public:
    void note(std::string_view line) {
        const auto now = Clock::now();
        constexpr std::string_view kPosted = "Manager::";
        constexpr std::string_view kHandling = "Handling ";
        const size_t key = line.find("3GPP:");
        if (key == std::string_view::npos || line.find(" < ") != std::string_view::npos) {
            return;
        }
        const std::string name(line.substr(key, line.find(' ', key) - key));
        std::lock_guard lock(mutex);
        if (line.starts_with(kPosted)) {
            waiting[name] = now;
        } else if (line.starts_with(kHandling)) {
            const auto came = waiting[name];
            waiting.erase(name);
            overtaken += std::count_if(waiting.begin(), waiting.end(), [&](const auto& other) {
                return other.second + kClearlyLater < came;
            });
            if (line.starts_with("Handling Match")) {
                handled = now;
            }
        }
    }
    Clock::time_point matchHandled() {
        std::lock_guard lock(mutex);
        return handled;
    }
    long timesOvertaken() {
        std::lock_guard lock(mutex);
        return overtaken;
    }

private:
    std::mutex mutex;
    std::map<std::string, Clock::time_point> waiting;
    Clock::time_point handled;
    long overtaken = 0;
};

Queue* queue = nullptr;

void useMachinesClock(LoadedLibrary& library) {
    library.modem().stop();
    library.modem().useVirtualClock(false);
    library.modem().start();
    library.restart();
    library.manager().refresh(PDCRefreshStatus::Complete);
}

/// Asks the modem each time: no two modifications in a row are alike.
void keepBusy(Manager& manager, const std::shared_ptr<IProfileKey>& key,
              const std::atomic<bool>& over) {
    for (int number = 0; !over.load(); ++number) {
        ModifyProfileParams change;
        change.setUserName("user " + std::to_string(number));
        manager.modifyProfile(change, key);
    }
}

void measure(LoadedLibrary& library, unsigned clients) {
    Queue all;
    queue = &all;
    std::atomic<bool> over{false};
    std::vector<std::jthread> busy;
    for (unsigned i = 0; i < clients; ++i) {
        busy.emplace_back([&, key = library.key(i)] { keepBusy(library.manager(), key, over); });
    }
    const auto key = library.key(clients);
    std::vector<double> waits;
    for (int i = 0; i < kMatches; ++i) {
        library.manager().match(FilterProfileParams(), key);
        const auto after = Clock::now();
        waits.push_back(
            std::chrono::duration<double, std::milli>(after - all.matchHandled()).count());
    }
    over = true;
    busy.clear();
    queue = nullptr;
    std::sort(waits.begin(), waits.end());
    const std::string beside = " beside " + std::to_string(clients);
    std::printf("%-64s%9.3f\n", ("ms/median" + beside).c_str(), waits[kMatches / 2]);
    std::printf("%-64s%9.3f\n", ("ms/longest" + beside).c_str(), waits.back());
    std::printf("%-64s%9ld\n", ("times/overtaken" + beside).c_str(), all.timesOvertaken());
}

}  // namespace

}  // namespace kiv::bench

int main() {
    using namespace kiv::bench;
    LoadedLibrary library(16);
    useMachinesClock(library);
    __android_log_set_logger([](const __android_logger_data*, const char* text) {
        if (queue != nullptr) {
            queue->note(text);
        }
    });
    kiv::emulator::Fault slow;
    slow.messageId = RAV_WDS_MODIFY_PROFILE_SETTINGS_REQ_V01;
    slow.every = 1;
    slow.delay = kInTheModem;
    library.modem().addFault(slow);
    for (const unsigned clients : {1U, 3U, 8U}) {
        measure(library, clients);
    }
}
