#include "Manager.h"

#include <dirent.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <thread>

#include "Asleep.h"
#include "Engine.h"
#include "Rounds.h"

namespace kiv::test {
namespace {

using testing::IsEmpty;

class ManagerTest : public EngineTest {
protected:
    /// Keeps the modem from answering one request. Has to outlive that request.
    class HeldRequest {
    public:
        explicit HeldRequest(unsigned messageId, unsigned nth = 1) {
            modem().addFault({messageId, nth, {}, {}, {}, [this](void*, size_t) {
                                  reached.set_value();
                                  answer.get_future().wait();
                              }});
        }
        void waitUntilReached() { reached.get_future().wait(); }
        void release() { answer.set_value(); }

    private:
        std::promise<void> reached;
        std::promise<void> answer;
    };
};

size_t entriesOf(const char* directory) {
    DIR* const open = opendir(directory);
    size_t count = 0;
    while (readdir(open) != nullptr) {
        ++count;
    }
    closedir(open);
    return count;
}

TEST_F(ManagerTest, BeforeInitEveryOperationFails) {
    Manager fresh;
    EXPECT_FALSE(fresh.addProfile(addParams("apn")));
    EXPECT_FALSE(fresh.modifyProfile(userName("u"), nullptr));
    EXPECT_FALSE(fresh.deleteProfile(nullptr));
    EXPECT_THAT(fresh.filter(FilterProfileParams()), IsEmpty());
    EXPECT_FALSE(fresh.getProfile(nullptr));
    EXPECT_FALSE(fresh.match(FilterProfileParams(), nullptr));
    fresh.refresh(PDCRefreshStatus::Complete);
    EXPECT_EQ(fresh.dump().front(), "Logs");
}

TEST_F(ManagerTest, ClientsLeaveAnEngineThatIsReplaced) {
    HeldRequest held(RAV_WDS_CREATE_PROFILE_REQ_V01);
    std::vector<std::jthread> clients;
    clients.emplace_back([this] { add("in flight"); });
    held.waitUntilReached();
    for (int i = 0; i < 4; ++i) {
        clients.emplace_back([this] { manager.filter(FilterProfileParams()); });
    }
    std::thread replacer([this] { manager.init(1, true); });
    log.waitFor("kiv::ClientRequestManager: destructor");
    held.release();
    clients.clear();  // waits for them
    replacer.join();
    ASSERT_TRUE(modem().waitForRegisteredClient(kPatience));
    EXPECT_EQ(modem().openClients(), 1U);
    EXPECT_TRUE(add("after"));
}

TEST_F(ManagerTest, ClientsAreServedInTheOrderInWhichTheyCame) {
    HeldRequest held(RAV_WDS_CREATE_PROFILE_REQ_V01);
    std::vector<std::jthread> clients;
    clients.emplace_back([this] { add("in flight"); });
    held.waitUntilReached();
    std::vector<std::string> expected;
    for (int id = 0; id < 8; ++id) {
        FilterProfileParams filter;
        filter.setFilterByProfileId(id);
        expected.push_back("Handling Filter params: " + filter.dump());
        clients.push_back(startUntilAsleep([this, filter] { manager.filter(filter); }));
    }
    held.release();
    clients.clear();  // waits for them
    std::vector<std::string> served;
    for (const std::string& text : log.texts()) {
        if (text.starts_with("Handling Filter")) {
            served.push_back(text);
        }
    }
    EXPECT_EQ(served, expected);
}

TEST_F(ManagerTest, AnsweredClientLeavesWhateverTheWorkerDoesNext) {
    const auto key = add("apn", true);
    HeldRequest first(RAV_WDS_MODIFY_PROFILE_SETTINGS_REQ_V01, 1);
    HeldRequest second(RAV_WDS_MODIFY_PROFILE_SETTINGS_REQ_V01, 2);
    std::jthread before([&] { manager.modifyProfile(userName("first"), key); });
    first.waitUntilReached();
    std::promise<bool> matched;
    const std::jthread client =
        startUntilAsleep([&] { matched.set_value(manager.match(FilterProfileParams(), key)); });
    const std::jthread after =
        startUntilAsleep([&] { manager.modifyProfile(userName("second"), key); });
    first.release();
    second.waitUntilReached();
    auto result = matched.get_future();
    EXPECT_EQ(result.wait_for(kPatience), std::future_status::ready);
    second.release();
    EXPECT_TRUE(result.get());
}

TEST_F(ManagerTest, ManyClientsAreServedBesideEachOther) {
    const auto key = add("apn", true);
    std::atomic<int> read{0};
    {
        std::vector<std::jthread> clients;
        for (int i = 0; i < 6; ++i) {
            clients.emplace_back([&] {
                for (int j = 0; j < 200; ++j) {
                    read += manager.getProfile(key) ? 1 : 0;
                }
            });
        }
    }
    EXPECT_EQ(read, 1200);
}

TEST_F(ManagerTest, EnginesBackToBackLeaveNothingBehind) {
    for (int i = 0; i < 20; ++i) {
        manager.init(i, i % 2 == 0);
    }
    const size_t descriptors = entriesOf("/proc/self/fd");
    const size_t threads = entriesOf("/proc/self/task");
    for (int i = 0; i < rounds(200); ++i) {
        manager.init(i, i % 2 == 0);
        log.clear();
    }
    EXPECT_EQ(entriesOf("/proc/self/fd"), descriptors);
    EXPECT_EQ(entriesOf("/proc/self/task"), threads);
    EXPECT_EQ(modem().diagUsers(), 1);  // the last one logs there
    startEngine();
    EXPECT_EQ(modem().diagUsers(), 0);
    EXPECT_TRUE(add("apn"));
}

}  // namespace
}  // namespace kiv::test
