#include <gmock/gmock.h>

#include <atomic>
#include <functional>
#include <future>
#include <string_view>

#include "Asleep.h"
#include "Engine.h"
#include "IProfileKey.h"

namespace kiv::test {
namespace {

using testing::IsEmpty;
using testing::SizeIs;

/// Holds up the worker thread when it has taken up a request of that text.
struct RequestInHand {
    explicit RequestInHand(std::string_view text) : text(text) {
        held = this;
        __android_log_set_logger([](const __android_logger_data*, const char* line) {
            if (std::string_view(line).starts_with(held->text) && !held->isPassed.exchange(true)) {
                held->reached.set_value();
                held->mayGoOn.get_future().wait();
            }
        });
    }
    ~RequestInHand() {
        __android_log_set_logger([](const __android_logger_data*, const char*) {});
    }

    const std::string_view text;
    std::promise<void> reached, mayGoOn;
    std::atomic<bool> isPassed{false};
    static inline RequestInHand* held;
};

using EngineEndTest = EngineTest;

TEST_F(EngineEndTest, RequestInHandIsCarriedOut) {
    std::shared_ptr<IProfileKey> key;
    const struct {
        const char* text;
        std::function<void()> request;
        const char* left;  // the user name of the profile that is there afterwards; null for none
    } rows[] = {
        {"Handling Callback Release", [&] { key.reset(); }, nullptr},
        {"Handling Delete", [&] { manager.deleteProfile(key); }, nullptr},
        {"Handling Modify", [&] { manager.modifyProfile(userName("me"), key); }, "me"},
    };
    for (const auto& [text, request, left] : rows) {
        SCOPED_TRACE(text);
        SetUp();
        key = add("apn");
        ASSERT_TRUE(key);
        {
            RequestInHand inHand(text);
            std::jthread replacer;
            const std::jthread client([&request = request] { request(); });
            inHand.reached.get_future().wait();
            replacer = startUntilAsleep([this] { manager.init(0, true); });
            inHand.mayGoOn.set_value();
            replacer.join();
        }
        ASSERT_THAT(table(), SizeIs(left == nullptr ? 0 : 1));
        if (left != nullptr) {
            EXPECT_STREQ(table()[0].settings.user_name, left);
        }
    }
}

TEST_F(EngineEndTest, ReleasesOfTheItemInHandAreCarriedOut) {
    for (const bool droppedBefore : {true, false}) {
        SCOPED_TRACE(droppedBefore ? "before the end began" : "after it began");
        SetUp();
        const auto trigger = add("trigger", true);
        std::vector<std::shared_ptr<IProfileKey>> keys = {add("a"), add("b"), add("c")};
        std::promise<void> heard;
        log.clear();
        trigger->registerExpirationListener([&] {
            if (droppedBefore) {
                keys.clear();
            }
            heard.set_value();
            // By then the engine's end has begun.
            log.waitFor("EventManager::wake() EX");
            keys.clear();
        });
        modem().deleteProfile(WDS_PROFILE_TYPE_3GPP_V01, 1);
        heard.get_future().wait();
        manager.init(0, true);
        EXPECT_THAT(table(), IsEmpty());
        EXPECT_EQ(requestCount(RAV_WDS_DELETE_PROFILE_REQ_V01), 3U);
    }
}

}  // namespace
}  // namespace kiv::test
