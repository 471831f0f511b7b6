#include <android/log.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <new>
#include <string>
#include <string_view>

#include "ClientRequest.h"
#include "ClientResponse.h"
#include "EmulatedModem.h"
#include "Interposed.h"
#include "LogWrapper.h"
#include "Params.h"
#include "ProfileCache.h"

namespace kiv::test {
namespace {

constexpr auto k3gpp = WDS_PROFILE_TYPE_3GPP_V01;
const std::string kLongText(100, 'u');

std::atomic<bool> registered{false};
std::atomic<int> strangersChanges{0};

/// A cache on a fresh modem, whose worker thread is the test's own, with a profile that key holds.
class HeldProfile {
public:
    HeldProfile() {
        registered = false;
        modem().factoryReset();
        modem().start();
        cache = std::make_unique<ProfileCache>(
            events, 0, [this](const std::shared_ptr<ClientRequest>& request) {
                cache->releaseProfile(dynamic_cast<CallbackRequest&>(*request).getReleaseToken());
                return nullptr;
            });
        while (!registered) {
            events.processEvents();
        }
        key = cache->add(addParams("held"));
        settle();
        strangersChanges = 0;
    }
    ~HeldProfile() {
        settle();
        other.reset();
        key.reset();
        settle();
        cache.reset();
        modem().stop();
    }

    /// Takes in all that the modem has to tell.
    void settle() {
        EXPECT_TRUE(modem().waitForDeliveries(kPatience));
        for (int turn = 0; turn < 3; ++turn) {
            events.wake();
            events.processEvents();
        }
    }

    /// Every profile of the modem is in the cache, and nothing is expected from the modem.
    void expectAgreement() {
        settle();
        EXPECT_EQ(strangersChanges, 0);
        EXPECT_EQ(cache->dump().size(), 2 + table().size());
        EXPECT_EQ(cache->dump().back(), "Pending:");
        for (const auto& held : {key, other}) {
            const auto profile = modem().profile(k3gpp, held ? held->getProfileId() : 0);
            const auto params = cache->get(held);
            ASSERT_EQ(params.has_value(), profile.has_value());
            if (params) {
                EXPECT_EQ(params->getUserName(), profile->settings.user_name);
            }
        }
    }
    static std::vector<emulator::Profile> table() { return modem().profiles(k3gpp); }

    EventManager events;
    std::unique_ptr<ProfileCache> cache;
    std::shared_ptr<ProfileKey> key, other;
};

/// Without memory, which would be tortured.
void watchLog() {
    LogWrapper::getInstance().setLogWriter(std::make_unique<AdbWriter>());
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    __android_log_set_logger([](const __android_logger_data*, const char* line) {
        const std::string_view text = line;
        registered = registered || text == "RavWdsProxy config register request successful!";
        strangersChanges += text == "ProfileCache: updating cache due to indication!" ? 1 : 0;
    });
}

/// Each operation with each of its allocations failing, one after the other. It is carried out in
/// the modem and in the cache, or in neither.
TEST(CacheMemoryTest, AChangeIsWholeOrNothing) {
    watchLog();
    const struct {
        const char* name;
        bool (*change)(HeldProfile& held);
        bool isKept;  // the profiles, if there was no memory to release them
    } rows[] = {
        {"add",
         [](HeldProfile& held) {
             held.other = held.cache->add(addParams(kLongText));
             return held.other != nullptr;
         },
         false},
        {"modify",
         [](HeldProfile& held) { return held.cache->modify(userName(kLongText), held.key); },
         false},
        {"remove", [](HeldProfile& held) { return held.cache->remove(held.key); }, false},
        {"release", [](HeldProfile& held) { return (held.key.reset(), true); }, true},
    };
    for (const auto& row : rows) {
        bool struck = true;
        for (int nth = 1; struck; ++nth) {
            SCOPED_TRACE(row.name + std::string(", failing allocation ") + std::to_string(nth));
            HeldProfile held;
            bool succeeded = false;
            {
                const Torture failure(Call::MemoryOfThisThread, nth);
                try {
                    succeeded = row.change(held);
                } catch (const std::bad_alloc&) {
                    succeeded = false;
                }
                struck = failure.struck();
            }
            EXPECT_TRUE(succeeded || struck);
            ASSERT_NO_FATAL_FAILURE(held.expectAgreement());
            held.key.reset();
            held.other.reset();
            ASSERT_NO_FATAL_FAILURE(held.expectAgreement());
            EXPECT_TRUE(held.table().empty() || (struck && row.isKept));
        }
    }
    LogWrapper::getInstance().setLogWriter(nullptr);
}

}  // namespace
}  // namespace kiv::test
