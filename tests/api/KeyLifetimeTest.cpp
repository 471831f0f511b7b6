#include <dlfcn.h>
#include <gmock/gmock.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <future>
#include <memory>
#include <new>
#include <thread>

#include "Asleep.h"
#include "Engine.h"
#include "IProfileKey.h"
#include "Rounds.h"
#include "Util.h"

namespace kiv::test {
namespace {

using testing::IsEmpty;
using testing::SizeIs;

class KeyLifetimeTest : public EngineTest {
protected:
    /// Another party deletes the profile, which makes its listeners run on the worker thread.
    static void deleteInModem(const std::shared_ptr<IProfileKey>& key) {
        modem().deleteProfile(WDS_PROFILE_TYPE_3GPP_V01, static_cast<uint8_t>(key->getProfileId()));
    }
};

TEST_F(KeyLifetimeTest, LibraryCallsInsideAListenerReturnTheEmptyResultAtOnce) {
    const auto key = add("apn", true);
    const auto other = add("other", true);
    std::promise<void> heard;
    bool empty = false;
    key->registerExpirationListener([&] {
        Util util;
        ProfileParams params;
        empty = !add("new") && !manager.modifyProfile(userName("u"), other) &&
                !manager.deleteProfile(other) && manager.filter(FilterProfileParams()).empty() &&
                !manager.getProfile(other) && !manager.match(FilterProfileParams(), other) &&
                !manager.dump().empty() &&  // the one that need not wait
                !util.findOrCreateProfileForSetupDataCall(TechType::Tech3gpp, params) &&
                !util.findOrCreateProfileForEmergencyDataCall(params) &&
                !util.findOrCreateProfileForLteAttach(params) &&
                !util.matchLteAttachProfileId(2, params);
        util.updateAPNTypeBitmaskOnModemProfile({params});
        util.updateModemProfileByApnClass({params}, {params});
        manager.refresh(PDCRefreshStatus::Complete);
        other->registerExpirationListener([] {});
        manager.init(0, true);
        heard.set_value();
    });
    deleteInModem(key);
    heard.get_future().wait();
    EXPECT_TRUE(empty);
    EXPECT_TRUE(
        log.contains("Request on a thread that must not wait refused: Delete " + other->dump()));
    EXPECT_TRUE(log.contains("Manager::init on a thread that must not wait refused"));
    EXPECT_TRUE(manager.getProfile(other));
    EXPECT_THAT(table(), SizeIs(1));
}

TEST_F(KeyLifetimeTest, KeyDroppedInsideAListenerIsReleasedAfterTheItemInHand) {
    auto key = add("apn", true);
    auto dropped = add("dropped");
    const std::string release = "Handling Callback Release " + dropped->dump().substr(13);
    key->registerExpirationListener([&] {
        dropped.reset();
        EXPECT_FALSE(log.contains(release));
    });
    deleteInModem(key);
    log.waitFor("Released profile 2");
    EXPECT_EQ(log.count(release), 1U);
    EXPECT_THAT(table(), IsEmpty());
}

TEST_F(KeyLifetimeTest, KeyCapturedByItsOwnListenerGoesWithTheProfile) {
    auto key = add("apn", true);
    const std::weak_ptr<IProfileKey> weak = key;
    std::promise<void> heard;
    key->registerExpirationListener([key, &heard]() { heard.set_value(); });
    deleteInModem(key);
    key.reset();
    heard.get_future().wait();
    log.waitFor("~ProfileKey");
    EXPECT_TRUE(weak.expired());
}

TEST_F(KeyLifetimeTest, KeyInARequestThatIsTurnedAwayHoldsUpNobody) {
    const auto trigger = add("trigger", true);
    const auto key = add("apn", true);
    auto captured = add("captured");
    std::promise<void> heard;
    std::promise<void> mayGoOn;
    trigger->registerExpirationListener([&] {
        heard.set_value();
        mayGoOn.get_future().wait();
    });
    deleteInModem(trigger);
    heard.get_future().wait();
    const std::jthread client = startUntilAsleep([&key, last = std::move(captured)]() mutable {
        key->registerExpirationListener([held = std::move(last)]() {});
    });
    log.clear();
    const std::jthread replacer = startUntilAsleep([&] { manager.init(0, true); });
    log.waitFor("kiv::ClientRequestManager: destructor");
    mayGoOn.set_value();
}

TEST_F(KeyLifetimeTest, ListenersHearThatTheirEngineGoes) {
    const auto key = add("apn", true);
    bool heard = false;
    key->registerExpirationListener([&] {
        heard = true;
        // Not the worker thread: the engine of now answers.
        EXPECT_THAT(manager.filter(FilterProfileParams()), IsEmpty());
    });
    manager.init(0, true);
    EXPECT_TRUE(heard);
}

TEST_F(KeyLifetimeTest, KeysDroppedAnywhereAreReleasedAtMostOnce) {
    using Key = std::shared_ptr<IProfileKey>;
    struct Place {
        const char* name;
        bool isReleased;
        std::function<void(Key)> drop;
    };
    const Place kPlaces[] = {
        {"on a client's thread", true, [](Key) {}},
        {"in a listener", true,
         [&](Key key) {
             const auto trigger = add("trigger", true);
             std::promise<void> heard;
             trigger->registerExpirationListener([&] {
                 key.reset();
                 heard.set_value();
             });
             deleteInModem(trigger);
             heard.get_future().wait();
         }},
        {"beside a refresh", false,
         [&](Key key) {
             const std::jthread refresher([&] { refresh(); });
             key.reset();
         }},
        {"beside a second init", false,
         [&](Key key) {
             const std::jthread replacer([&] { manager.init(0, true); });
             key.reset();
         }},
        {"after its engine", false, [&](Key) { manager.init(0, true); }},
        {"in a module that is unloaded", true,
         [&](Key key) {
             void* const module = dlopen(KIVR_TEST_MODULE, RTLD_NOW | RTLD_LOCAL);
             ASSERT_TRUE(module) << dlerror();
             reinterpret_cast<void (*)(const Key&)>(dlsym(module, "hold"))(key);
             key.reset();
             ASSERT_EQ(dlclose(module), 0);
         }},
    };
    for (const auto& [place, isReleased, drop] : kPlaces) {
        SetUp();
        for (int i = 0; i < rounds(20); ++i) {
            ASSERT_TRUE(modem().waitForRegisteredClient(kPatience));
            auto key = add("apn");
            ASSERT_TRUE(key) << place;
            const std::weak_ptr<IProfileKey> weak = key;
            drop(std::move(key));
            manager.match(FilterProfileParams(), nullptr);  // what was dropped there is done
            EXPECT_TRUE(weak.expired()) << place;
            EXPECT_TRUE(!isReleased || table().empty()) << place;
            log.clear();
            for (const auto& left : table()) {
                modem().deleteProfile(left.type, left.index);
            }
        }
        EXPECT_LE(requestCount(RAV_WDS_DELETE_PROFILE_REQ_V01),
                  requestCount(RAV_WDS_CREATE_PROFILE_REQ_V01));
    }
}

/// Is there before the Manager, and so destroyed after its engine.
struct LateCaller {
    std::shared_ptr<IProfileKey> key;
    ~LateCaller() {
        Manager& manager = Manager::getInstance();
        if (key && (manager.getProfile(key) || manager.dump().empty())) {
            _exit(1);
        }
    }
} lateCaller;

/// The end of the process, each way in a process of its own.
class ProcessEndTest : public KeyLifetimeTest {
protected:
    void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
    void start() { KeyLifetimeTest::SetUp(); }
    void expectClean(void (*end)(ProcessEndTest&)) {
        EXPECT_EXIT((start(), end(*this)), testing::ExitedWithCode(0), "");
    }

public:
    std::shared_ptr<IProfileKey> addPersistent() { return add("apn", true); }
    static void remove(const std::shared_ptr<IProfileKey>& key) { deleteInModem(key); }
};

TEST_F(ProcessEndTest, ExitWithAKeyInAStaticObject) {
    expectClean([](ProcessEndTest& test) {
        static std::shared_ptr<IProfileKey> late;
        Manager::getInstance();
        static std::shared_ptr<IProfileKey> early;
        late = early = test.addPersistent();
        late->registerExpirationListener([] {});
        exit(0);
    });
}

TEST_F(ProcessEndTest, CallsFromAStaticDestructorAfterTheEngineIsGone) {
    expectClean([](ProcessEndTest& test) {
        lateCaller.key = test.addPersistent();
        exit(0);
    });
}

TEST_F(ProcessEndTest, ExitInsideAListener) {
    expectClean([](ProcessEndTest& test) {
        const auto key = test.addPersistent();
        key->registerExpirationListener([] { exit(0); });
        ProcessEndTest::remove(key);
        std::promise<void>().get_future().wait();
    });
}

TEST_F(ProcessEndTest, ExitBesideClientsThatAreBeingServed) {
    expectClean([](ProcessEndTest&) {
        for (int i = 0; i < 4; ++i) {
            std::thread([] {
                for (;;) {
                    Manager::getInstance().filter(FilterProfileParams());
                }
            }).detach();
        }
        for (int i = 0; i < 50; ++i) {
            Manager::getInstance().filter(FilterProfileParams());
        }
        exit(0);
    });
}

TEST_F(ProcessEndTest, QuickExit) {
    expectClean([](ProcessEndTest& test) {
        static std::shared_ptr<IProfileKey> key;
        key = test.addPersistent();
        quick_exit(0);
    });
}

/// Forks and waits until the child, which has the engine's memory but not its thread, has ended
/// well. Then the parent's engine must still serve, and stop.
void expectEngineSurvives(void (*child)()) {
    modem().waitForDeliveries(kPatience);  // what its threads hold would be lost in the child
    const pid_t pid = fork();
    if (pid == 0) {
        child();
    }
    int status = -1;
    waitpid(pid, &status, 0);
    const bool serves = Manager::getInstance().filter(FilterProfileParams()).size() == 1;
    exit(status == 0 && serves ? 0 : 1);
}

TEST_F(ProcessEndTest, ForkedChildExits) {
    expectClean([](ProcessEndTest& test) {
        const auto key = test.addPersistent();
        expectEngineSurvives([] { exit(0); });
    });
}

TEST_F(ProcessEndTest, ForkedChildDropsAKeyAndCallsTheLibrary) {
    expectClean([](ProcessEndTest& test) {
        static std::shared_ptr<IProfileKey> key;
        key = test.addPersistent();
        expectEngineSurvives([] {
            const bool empty = Manager::getInstance().filter(FilterProfileParams()).empty();
            key.reset();
            _exit(empty ? 0 : 1);
        });
    });
}

TEST_F(ProcessEndTest, ForkedChildDestroysAManager) {
    expectClean([](ProcessEndTest&) {
        static auto own = std::make_unique<Manager>();
        own->init(0, true);
        modem().waitForDeliveries(kPatience);
        alarm(10);
        const pid_t pid = fork();
        if (pid == 0) {
            own.reset();
            _exit(0);
        }
        int status = -1;
        waitpid(pid, &status, 0);
        own->filter(FilterProfileParams());  // returns
        exit(status == 0 ? 0 : 1);
    });
}

TEST_F(ProcessEndTest, ChildForkedByAListenerEndsThere) {
    expectClean([](ProcessEndTest& test) {
        static std::atomic<int>* const calls =
            new (mmap(nullptr, sizeof(std::atomic<int>), PROT_READ | PROT_WRITE,
                      MAP_SHARED | MAP_ANONYMOUS, -1, 0)) std::atomic<int>(0);
        static std::promise<void> over;
        static int status = -1;
        const auto forking = test.addPersistent();
        const auto other = test.addPersistent();
        forking->registerExpirationListener([&other] {
            ProcessEndTest::remove(other);  // which then waits to be handled
            modem().waitForDeliveries(kPatience);
            const pid_t pid = fork();
            if (pid == 0) {
                _exit(0);
            }
            waitpid(pid, &status, 0);
        });
        other->registerExpirationListener([] {
            ++*calls;
            over.set_value();
        });
        ProcessEndTest::remove(forking);
        over.get_future().wait();
        exit(status == 0 && *calls == 1 && test.addPersistent() ? 0 : 1);
    });
}

}  // namespace
}  // namespace kiv::test
