// A phone's life: many requests and many restarts of the modem, and nothing grows.

#include <android/log.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <thread>

#include "EmulatedModem.h"
#include "Manager.h"
#include "Model.h"
#include "Params.h"
#include "World.h"

namespace kiv::test {
namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kIsMemoryOurs = false;  ///< a sanitizer's own memory grows
#else
constexpr bool kIsMemoryOurs = true;
#endif
constexpr long kMostGrowth = 64 * 1024;

/// Without the free memory that the allocator keeps for later.
long residentBytes() {
    malloc_trim(0);
    long size = 0;
    long resident = 0;
    std::ifstream("/proc/self/statm") >> size >> resident;
    return resident * sysconf(_SC_PAGESIZE);
}

long entriesOf(const char* directory) {
    return std::distance(std::filesystem::directory_iterator(directory), {});
}

/// What must not grow.
struct Footprint {
    long resident = residentBytes();
    long descriptors = entriesOf("/proc/self/fd");
    long threads = entriesOf("/proc/self/task");
};

class EnduranceTest : public testing::Test {
protected:
    /// From one restart of the modem to the next. The emulator forgets its record of requests, so
    /// that it does not hide what the library keeps.
    void live() {
        modem().stop();
        modem().factoryReset();
        modem().installFactoryProfiles();
        modem().setHook([this](const emulator::Request&, void*, size_t) { ++requests; });
        modem().start();
        ASSERT_TRUE(modem().waitForRegisteredClient(kPatience));
        for (const uint64_t end = requests + 1000; requests < end;) {
            manager.refresh(PDCRefreshStatus::Complete);
            const auto key = manager.addProfile(addParams("internet"));
            ASSERT_TRUE(key);
            key->registerExpirationListener([] {});
            ASSERT_TRUE(manager.modifyProfile(userName("me"), key));
            ASSERT_GE(manager.filter(FilterProfileParams()).size(), 4U);
        }
        if (isSeeded("leakedBlock")) {
            std::fill_n(new volatile char[4096], 4096, 'x');
        } else if (isSeeded("leakedDescriptor")) {
            EXPECT_GE(dup(STDOUT_FILENO), 0);
        } else if (isSeeded("leakedThread")) {
            std::thread([] { pause(); }).detach();
        }
    }

    Manager& manager = Manager::getInstance();
    std::atomic<uint64_t> requests{0};
};

TEST_F(EnduranceTest, NothingGrows) {
    const uint64_t wanted = countFrom("KIVR_REQUESTS", 20000);
    __android_log_set_logger([](const __android_logger_data*, const char*) {});
    modem().stop();
    ASSERT_TRUE(modem().useVirtualClock(true));
    manager.init(0, true);
    // Until the allocator has seen everything.
    while (requests < 8000) {
        ASSERT_NO_FATAL_FAILURE(live());
    }
    // Once before: to look takes memory too.
    static_cast<void>(Footprint());
    ASSERT_NO_FATAL_FAILURE(live());
    const Footprint before;
    uint64_t lives = 0;
    for (const uint64_t end = requests + wanted; requests < end || lives < wanted / 1000; ++lives) {
        ASSERT_NO_FATAL_FAILURE(live());
    }
    const Footprint after;
    std::cout << "result: " << wanted << " requests, " << lives << " restarts: resident memory "
              << before.resident / 1024 << " KiB and " << after.resident / 1024
              << " KiB, descriptors " << before.descriptors << " and " << after.descriptors
              << ", threads " << before.threads << " and " << after.threads << std::endl;
    EXPECT_TRUE(!kIsMemoryOurs || after.resident - before.resident < kMostGrowth);
    EXPECT_EQ(after.descriptors, before.descriptors);
    EXPECT_EQ(after.threads, before.threads);
    modem().setHook(nullptr);
}

}  // namespace
}  // namespace kiv::test
