#include "Manager.h"

#include <dirent.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <thread>

#include "Engine.h"
#include "Rounds.h"

namespace kiv::test {
namespace {

using testing::IsEmpty;
using testing::SizeIs;

class ManagerTest : public EngineTest {};

size_t entriesOf(const char* directory) {
    DIR* const open = opendir(directory);
    size_t count = 0;
    while (readdir(open) != nullptr) {
        ++count;
    }
    closedir(open);
    return count;
}

TEST_F(ManagerTest, BeforeInitEveryOperationFailsAndSaysSo) {
    Manager fresh;
    log.clear();
    EXPECT_FALSE(fresh.addProfile(addParams("apn")));
    EXPECT_FALSE(fresh.modifyProfile(userName("u"), nullptr));
    EXPECT_FALSE(fresh.deleteProfile(nullptr));
    EXPECT_THAT(fresh.filter(FilterProfileParams()), IsEmpty());
    EXPECT_FALSE(fresh.getProfile(nullptr));
    EXPECT_FALSE(fresh.match(FilterProfileParams(), nullptr));
    fresh.refresh(PDCRefreshStatus::Complete);
    EXPECT_EQ(log.count("Manager not initialized!"), 7U);
    EXPECT_EQ(fresh.dump().front(), "Logs");
}

TEST_F(ManagerTest, KeysThatAreNotTheLibrarysAreRefused) {
    class ForeignKey : public IProfileKey {
        int getProfileId() override { return 1; }
        TechType getTechType() override { return TechType::Tech3gpp; }
        void registerExpirationListener(std::function<void()>) override {}
        std::string dump() override { return "foreign"; }
    };
    add("apn", true);
    for (const std::shared_ptr<IProfileKey>& key :
         {std::shared_ptr<IProfileKey>(), std::shared_ptr<IProfileKey>(new ForeignKey)}) {
        EXPECT_FALSE(manager.modifyProfile(userName("u"), key));
        EXPECT_FALSE(manager.deleteProfile(key));
        EXPECT_FALSE(manager.getProfile(key));
        EXPECT_FALSE(manager.match(FilterProfileParams(), key));
    }
    EXPECT_THAT(table(), SizeIs(1));
}

TEST_F(ManagerTest, ClientsLeaveAnEngineThatIsReplaced) {
    std::promise<void> reached;
    std::promise<void> answer;
    modem().setHook([&](const emulator::Request& request, void*, size_t) {
        if (request.messageId == RAV_WDS_CREATE_PROFILE_REQ_V01) {
            reached.set_value();
            answer.get_future().wait();
        }
    });
    std::vector<std::jthread> clients;
    clients.emplace_back([this] { add("in flight"); });
    reached.get_future().wait();
    for (int i = 0; i < 4; ++i) {
        clients.emplace_back([this] { manager.filter(FilterProfileParams()); });
    }
    std::thread replacer([this] { manager.init(1, true); });
    log.waitFor("kiv::ClientRequestManager: destructor");
    answer.set_value();
    modem().setHook(nullptr);
    clients.clear();  // waits for them
    replacer.join();
    ASSERT_TRUE(modem().waitForRegisteredClient(kPatience));
    EXPECT_EQ(modem().openClients(), 1U);
    EXPECT_TRUE(add("after"));
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
