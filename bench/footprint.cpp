// What the library takes while it does nothing or the same again, one figure a line:
//   allocations/KIND  memory allocations of one operation, the emulated modem's left out
//   bytes/WHAT        memory that stays, as malloc rounds it
//   stack/WHAT        the deepest use of the worker thread's stack, down to liblog and the modem
//   wakeups/WHEN      times that the kernel ran any thread but the one that counts, in ten seconds

#include <android/log.h>
#include <dlfcn.h>
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <new>
#include <string>
#include <thread>

#include "LoadedLibrary.h"

namespace {

std::atomic<long> allocations{0};
std::atomic<long> liveBytes{0};
std::atomic<size_t> deepestStack{0};

thread_local bool isWorker = false;
thread_local int insideModem = 0;

/// Whether the thread is one of the emulated modem's.
bool isModemThread() {
    thread_local const bool answer = [] {
        char name[16] = "";
        pthread_getname_np(pthread_self(), name, sizeof(name));
        return std::string_view(name).starts_with("modem");
    }();
    return answer;
}

/// Stands before each piece of memory.
struct alignas(std::max_align_t) Header {
    long bytes;  ///< 0 if it does not count
};

void* allocate(size_t size) {
    auto* const header = static_cast<Header*>(std::malloc(sizeof(Header) + size));
    if (!header) {
        throw std::bad_alloc();
    }
    header->bytes = 0;
    if (insideModem == 0 && !isModemThread()) {
        // What malloc would take without this header: a word of its own, rounded up.
        header->bytes = static_cast<long>(std::max<size_t>(32, (size + 8 + 15) / 16 * 16));
        ++allocations;
        liveBytes += header->bytes;
    }
    return header + 1;
}

void release(void* memory) {
    if (memory) {
        auto* const header = static_cast<Header*>(memory) - 1;
        liveBytes -= header->bytes;
        std::free(header);
    }
}

/// Notes how deep the worker is in its stack.
void measureStack() {
    pthread_attr_t attributes;
    void* lowest = nullptr;
    size_t size = 0;
    pthread_getattr_np(pthread_self(), &attributes);
    pthread_attr_getstack(&attributes, &lowest, &size);
    pthread_attr_destroy(&attributes);
    const std::byte here{};
    const auto used = static_cast<size_t>(static_cast<std::byte*>(lowest) + size - &here);
    deepestStack = std::max(deepestStack.load(), used);
}

}  // namespace

void* operator new(size_t size) { return allocate(size); }
void* operator new[](size_t size) { return allocate(size); }
void operator delete(void* memory) noexcept { release(memory); }
void operator delete[](void* memory) noexcept { release(memory); }
void operator delete(void* memory, size_t) noexcept { release(memory); }
void operator delete[](void* memory, size_t) noexcept { release(memory); }

/// Stands before the emulator's: what it does for a request is not the library's.
extern "C" int rav_client_send_msg_sync(rav_client_type client, unsigned int msg_id,
                                        const void* req, unsigned int req_len, void* resp,
                                        unsigned int resp_len, unsigned int timeout_ms) {
    static const auto real = reinterpret_cast<decltype(&rav_client_send_msg_sync)>(
        dlsym(RTLD_NEXT, "rav_client_send_msg_sync"));
    isWorker = true;
    measureStack();
    ++insideModem;
    const int result = real(client, msg_id, req, req_len, resp, resp_len, timeout_ms);
    --insideModem;
    return result;
}

namespace {

using namespace kiv;
using kiv::bench::LoadedLibrary;

constexpr unsigned kProfiles = 64;

void print(const std::string& name, double value) {
    std::printf("%-40s %.6g\n", name.c_str(), value);
}

/// After a while in which strings and pools have grown as far as they do.
double allocationsOf(LoadedLibrary& library, const std::function<void()>& once) {
    constexpr int kWarmUp = 300;
    constexpr int kTimes = 100;
    for (int i = 0; i < kWarmUp; ++i) {
        once();
    }
    library.settle();
    const long before = allocations;
    for (int i = 0; i < kTimes; ++i) {
        once();
    }
    library.settle();
    return static_cast<double>(allocations - before) / kTimes;
}

void printAllocations(LoadedLibrary& library) {
    Manager& manager = library.manager();
    const auto key = library.key(1);
    const FilterProfileParams filter = LoadedLibrary::filterFor(1);
    const FilterProfileParams noOne = LoadedLibrary::filterFor(kProfiles);
    const AddProfileParams added(LoadedLibrary::settings("added"), false, TechType::Tech3gpp,
                                 false);
    int turn = 0;
    const auto modify = [&] {
        ModifyProfileParams change;
        change.setUserName(++turn % 2 != 0 ? "one" : "other");
        manager.modifyProfile(change, key);
    };
    const auto print1 = [&](const char* kind, const std::function<void()>& once) {
        print(std::string("allocations/") + kind, allocationsOf(library, once));
    };
    print1("getProfile", [&] { manager.getProfile(key); });
    print1("match", [&] { manager.match(filter, key); });
    print1("filter, nothing found", [&] { manager.filter(noOne); });
    print1("filter, one found and its key dropped", [&] { manager.filter(filter); });
    print1("add and delete", [&] { manager.deleteProfile(manager.addProfile(added)); });
    print1("modify", modify);
    const auto refresh = [&] { manager.refresh(PDCRefreshStatus::Complete); };
    print("allocations/refresh, for each profile", allocationsOf(library, refresh) / kProfiles);
}

void printMemory() {
    LoadedLibrary library(kProfiles);
    Manager& manager = library.manager();
    for (int i = 0; i < 5; ++i) {
        manager.refresh(PDCRefreshStatus::Complete);  // the kept lines are as long as they get
    }
    library.restart();
    long before = liveBytes;
    manager.refresh(PDCRefreshStatus::Complete);
    print("bytes/profile", static_cast<double>(liveBytes - before) / kProfiles);

    manager.filter(FilterProfileParams());
    before = liveBytes;
    const auto keys = manager.filter(FilterProfileParams());
    const double nodes = 48.0 * kProfiles;  // of the list, which is the client's
    print("bytes/key", (static_cast<double>(liveBytes - before) - nodes) / kProfiles);
}

/// How often the kernel has run the threads of this process but for this one.
long wakeups() {
    long count = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        if (task.path().filename() == std::to_string(getpid())) {
            continue;
        }
        std::ifstream status(task.path() / "status");
        for (std::string word; status >> word;) {
            if (word == "voluntary_ctxt_switches:" || word == "nonvoluntary_ctxt_switches:") {
                status >> word;
                count += std::stol(word);
            }
        }
    }
    return count;
}

long wakeupsWithin(std::chrono::seconds span) {
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    const long before = wakeups();
    std::this_thread::sleep_for(span);
    return wakeups() - before;
}

void printIdle() {
    constexpr std::chrono::seconds kSpan{10};
    LoadedLibrary library(kProfiles);
    library.settle();
    print("wakeups/modem there", static_cast<double>(wakeupsWithin(kSpan)));
    library.modem().stop();
    print("wakeups/modem away", static_cast<double>(wakeupsWithin(kSpan)));
}

}  // namespace

int main() {
    {
        LoadedLibrary library(kProfiles);
        __android_log_set_logger([](const __android_logger_data*, const char*) {
            if (isWorker) {
                measureStack();
            }
        });
        printAllocations(library);
        print("stack/worker", static_cast<double>(deepestStack));
    }
    printMemory();
    printIdle();
}
