#include <dirent.h>
#include <gmock/gmock.h>

#include <atomic>
#include <cstdlib>
#include <future>
#include <memory>
#include <mutex>
#include <regex>
#include <set>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include "Asleep.h"
#include "ClientRequestManager.h"
#include "Engine.h"
#include "EventManager.h"
#include "Interposed.h"
#include "LogWrapper.h"
#include "Util.h"

namespace kiv::test {
namespace {

size_t openDescriptors() {
    DIR* const open = opendir("/proc/self/fd");
    size_t count = 0;
    while (readdir(open) != nullptr) {
        ++count;
    }
    closedir(open);
    return count;
}

size_t approvedDescriptors() {
    size_t count = 0;
    for (int fd = 0; fd < 256; ++fd) {
        count += EventManager::isApprovedFd(fd) ? 1 : 0;
    }
    return count;
}

const FilterProfileParams kAny;
std::atomic<bool> expired{false};

/// The texts of the errors in the log, with N for each number.
class Errors {
public:
    void note(int priority, std::string_view text) {
        if (priority == ANDROID_LOG_ERROR) {
            const OnBehalfOf test(false);
            std::lock_guard lock(mutex);
            texts.insert(std::regex_replace(std::string(text), std::regex("\\d+"), "N"));
        }
    }
    std::set<std::string> take() {
        std::lock_guard lock(mutex);
        return std::exchange(texts, {});
    }

private:
    std::mutex mutex;
    std::set<std::string> texts;
} errors;

/// Each step of each core scenario with each call failing, one after the other.
class TortureTest : public EngineTest {
public:
    struct Step {
        const char* name;
        bool (*succeeds)(TortureTest& test);
        /// What it returns if the modem refuses its first request.
        bool succeedsIfRefused;
    };
    static const std::vector<Step> kSteps;

protected:
    TortureTest() {
        // The tests' own log would be tortured too.
        __android_log_set_logger([](const __android_logger_data* line, const char* text) {
            errors.note(line->priority, text);
        });
    }
    void SetUp() override {
        EngineTest::SetUp();
        key = add("tortured");
        descriptors = openDescriptors();
        clients = modem().openClients();
    }

    static void waitForModem() {
        const OnBehalfOf test(false);
        modem().waitForDeliveries(kPatience);
    }

    /// What came from the modem has been carried out when two requests have: the first may share
    /// its pass of the loop with it.
    static void settle(Manager& manager) {
        waitForModem();
        manager.match(kAny, nullptr);
        manager.match(kAny, nullptr);
    }

    /// Nothing is left of the failure: the cache is the modem, requests work, nothing leaked.
    void expectRecovery() {
        settle(manager);
        refresh();
        EXPECT_EQ(manager.filter(kAny).size(), table().size());
        const auto next = add("next");
        ASSERT_TRUE(next);
        EXPECT_TRUE(manager.getProfile(next));
        EXPECT_TRUE(manager.deleteProfile(next));
        for (const emulator::Profile& profile : table()) {
            modem().deleteProfile(profile.type, profile.index);
        }
        settle(manager);
        refresh();
        key = add("tortured");
        ASSERT_TRUE(key);
        settle(manager);
        EXPECT_EQ(openDescriptors(), descriptors);
        EXPECT_EQ(modem().openClients(), clients);
    }

    /// Fails the nth call in each step, for every n that there is.
    void torture(Call call, const std::vector<std::string>& expectedErrors) {
        errors.take();
        for (const Step& step : kSteps) {
            bool struck = true;
            for (int nth = 1; struck; ++nth) {
                SCOPED_TRACE(std::string(step.name) + ", failing number " + std::to_string(nth));
                bool succeeded = true;
                {
                    const Torture failure(call, nth);
                    try {
                        succeeded = step.succeeds(*this);
                    } catch (const std::system_error&) {
                        EXPECT_EQ(call, Call::Thread);
                    } catch (const std::bad_alloc&) {
                        ADD_FAILURE() << "an exception left the library";
                    }
                    struck = failure.struck();
                }
                EXPECT_TRUE(succeeded || struck);
                // What could not be read is read again without a word.
                while (call == Call::Memory && manager.filter(kAny).size() != table().size()) {
                    settle(manager);
                }
                ASSERT_NO_FATAL_FAILURE(expectRecovery());
                failures += struck ? 1 : 0;
            }
        }
        RecordProperty("failures", failures);
        EXPECT_GT(failures, 0);
        EXPECT_THAT(errors.take(), testing::IsSupersetOf(expectedErrors));
    }

    std::shared_ptr<IProfileKey> key;
    size_t descriptors = 0;
    size_t clients = 0;
    int failures = 0;
};

const std::vector<TortureTest::Step> TortureTest::kSteps = {
    {"init and shutdown",
     [](TortureTest&) {
         Manager other;
         other.init(0, true);
         settle(other);
         return other.dump().size() > 2;
     },
     true},
    {"add", [](TortureTest& test) { return test.add("other") != nullptr; }, false},
    {"get", [](TortureTest& test) { return test.manager.getProfile(test.key).has_value(); }, true},
    {"filter", [](TortureTest& test) { return !test.manager.filter(kAny).empty(); }, true},
    {"match", [](TortureTest& test) { return test.manager.match(kAny, test.key); }, true},
    {"modify",
     [](TortureTest& test) { return test.manager.modifyProfile(userName("me"), test.key); }, true},
    {"delete", [](TortureTest& test) { return test.manager.deleteProfile(test.key); }, false},
    {"release", [](TortureTest& test) { return (test.key.reset(), true); }, true},
    {"refresh", [](TortureTest& test) { return (test.refresh(), true); }, true},
    {"listener",
     [](TortureTest& test) {
         expired = false;
         test.key->registerExpirationListener([] { expired = true; });
         {
             const OnBehalfOf anotherParty(false);
             modem().modifyProfile(WDS_PROFILE_TYPE_3GPP_V01, 1, settings3gpp("changed"));
         }
         settle(test.manager);
         // The profile may be one that could not be read.
         test.manager.modifyProfile(userName("me"), test.key);
         return expired.load();
     },
     true},
};

TEST_F(TortureTest, EpollControl) {
    torture(Call::EpollControl, {"Cannot add event handler", "Cannot remove event handler"});
}
TEST_F(TortureTest, EpollWait) { torture(Call::EpollWait, {"epoll_wait error"}); }
TEST_F(TortureTest, Read) { torture(Call::Read, {"Error while clearing the read buffer on fd N"}); }
TEST_F(TortureTest, Write) {
    torture(Call::Write, {"Error in writing rv: -N, error: Input/output error",
                          "error in writing rv: -N error: Input/output error"});
}
TEST_F(TortureTest, Thread) { torture(Call::Thread, {}); }
TEST_F(TortureTest, Memory) {
    torture(Call::Memory, {"ClientRequestManager: out of memory", "Manager: out of memory",
                           "ProfileKey: out of memory, listener is not registered",
                           "ProfileKey: out of memory, token=N is not released",
                           "RavWdsProxy: out of memory, indication is lost"});
}

TEST_F(TortureTest, ModemRequests) {
    const size_t approved = approvedDescriptors();
    for (const Step& step : kSteps) {
        bool struck = true;
        for (unsigned nth = 1; struck; ++nth) {
            SCOPED_TRACE(std::string(step.name) + ", request " + std::to_string(nth));
            const size_t before = modem().requests().size();
            refuse(0, nth);
            const bool succeeded = step.succeeds(*this);
            modem().clearFaults();
            struck = modem().requests().size() >= before + nth;
            EXPECT_EQ(succeeded, nth != 1 || step.succeedsIfRefused || !struck);
            ASSERT_NO_FATAL_FAILURE(expectRecovery());
        }
    }
    EXPECT_EQ(approvedDescriptors(), approved);
}

TEST_F(TortureTest, PoliciesThatLackMemorySayItOnceAndThrowNothing) {
    static std::atomic<int> complaints{0};
    __android_log_set_logger([](const __android_logger_data* line, const char* text) {
        complaints +=
            line->priority == ANDROID_LOG_ERROR && std::string_view(text) == "Util: out of memory"
                ? 1
                : 0;
    });
    static const ProfileParams wanted = filled<ProfileParams>([](ProfileParams& params) {
        params.setApnName("a name that needs memory of its own");
        params.setApnClass(ApnClass::APP);
        params.setApnTypesMask(toMask(ApnTypes::DEFAULT));
    });
    static const std::list<ProfileParams> list = {wanted};
    void (*const policies[])(Util&) = {
        [](Util& util) { util.findOrCreateProfileForSetupDataCall(TechType::Tech3gpp, wanted); },
        [](Util& util) { util.findOrCreateProfileForEmergencyDataCall(wanted); },
        [](Util& util) { util.findOrCreateProfileForLteAttach(wanted); },
        [](Util& util) { util.matchLteAttachProfileId(1, wanted); },
        [](Util& util) { util.updateModemProfileByApnClass(list, list); },
        [](Util& util) {
            util.updateModemProfileByApnClassAndTechType(wanted, TechType::Tech3gpp);
        },
        [](Util& util) { util.updateAPNTypeBitmaskOnModemProfile(list); },
        [](Util& util) { util.handleCombinedProfileUpdate(1, wanted.getApnName()); },
        [](Util& util) {
            util.handleProfileUpdateByTechType(TechType::Tech3gpp, 1, 2, 0, wanted.getApnName());
        },
        [](Util& util) {
            util.updateByIpType(TechType::Tech3gpp, IPType::V4, 1, wanted.getApnName());
        },
    };
    for (const auto& policy : policies) {
        int ofPolicy = 0;
        bool struck = true;
        // The first allocation of the last three is the test's own, for the name that it passes.
        for (int nth = &policy < &policies[7] ? 1 : 2; struck; ++nth) {
            Util util;
            modem().factoryReset();
            settle(manager);
            refresh();
            complaints = 0;
            const Torture failure(Call::Memory, nth);
            EXPECT_NO_THROW(policy(util)) << &policy - policies << ", " << nth;
            struck = failure.struck();
            EXPECT_LE(complaints, 1);
            ofPolicy += complaints;
        }
        EXPECT_GT(ofPolicy, 0) << &policy - policies;
    }
    expectRecovery();
}

TEST_F(TortureTest, RequestThatGetsNoResponseHoldsUpNobodyElse) {
    // Of no type that there is, and of a type that is another class's.
    for (const auto type : {static_cast<ReqRespType>(8), ReqRespType::Refresh}) {
        auto engine = std::make_unique<ClientRequestManager>(0);
        const auto gate = engine->getGate();
        const auto odd = std::make_shared<ClientRequest>(type);
        EXPECT_EQ(odd->dump(), type == ReqRespType::Refresh ? "Refresh " : "8 ");
        const auto client = startUntilAsleep([&] { EXPECT_FALSE(gate->process(odd)); });
        EXPECT_TRUE(gate->process(std::make_shared<FilterRequest>(kAny)));
        engine.reset();
    }
}

/// Holds up the worker when it takes up a request, and counts the writes that failed.
struct Gate {
    Gate() {
        gate = this;
        __android_log_set_logger([](const __android_logger_data*, const char* line) {
            const std::string_view text = line;
            gate->errors += text.starts_with("error in writing rv: -1 error: Input") ? 1 : 0;
            if (text == ":77:handleClientRequest" && !gate->isPassed.exchange(true)) {
                gate->reached.set_value();
                gate->mayGoOn.get_future().wait();
            }
        });
    }
    ~Gate() {
        __android_log_set_logger([](const __android_logger_data*, const char*) {});
    }

    std::promise<void> reached, mayGoOn;
    std::atomic<bool> isPassed{false};
    std::atomic<int> errors{0};
    static inline Gate* gate;
};

/// The worker, about to serve the one client, finds that it can't signal for the other.
TEST_F(TortureTest, SignalThatFailsForWhoWaitsFailsThatOneAlone) {
    Gate gate;
    bool isServed = false;
    bool isOtherServed = true;
    {
        const std::jthread client([&] { isServed = manager.match(kAny, key); });
        gate.reached.get_future().wait();
        auto other = startUntilAsleep([&] { isOtherServed = manager.match(kAny, key); });
        const Torture failure(Call::Write, 1);
        gate.mayGoOn.set_value();
        other.join();
    }
    EXPECT_TRUE(isServed);
    EXPECT_FALSE(isOtherServed);
    EXPECT_EQ(gate.errors, 1);
    EXPECT_TRUE(manager.match(kAny, key));
}

/// Without memory for a turn of its own, a client waits for one that is there, or for the end.
TEST_F(TortureTest, RefreshIsCompletedWithoutMemoryForIt) {
    for (int i = 0; i < 250; ++i) {
        KIV_LOG(ERROR, "%100d: the log's buffer needs no more memory once it is full", i);
    }
    for (const bool isReplaced : {false, true}) {
        Gate gate;
        const std::jthread client([&] { manager.refresh(PDCRefreshStatus::Start); });
        gate.reached.get_future().wait();
        std::jthread replacer;
        {
            const Torture failure(Call::Memory, 1);
            const OnBehalfOf test(false);
            auto other = startUntilAsleep([&] {
                const OnBehalfOf library(true);
                manager.refresh(PDCRefreshStatus::Complete);
            });
            if (isReplaced) {
                replacer = startUntilAsleep([&] { manager.init(0, true); });
            }
            gate.mayGoOn.set_value();
            other.join();
        }
        replacer = {};
        EXPECT_TRUE(modem().waitForRegisteredClient(kPatience));
        EXPECT_TRUE(add("after")) << isReplaced;
        settle(manager);
    }
}

/// An engine can't do without these: documented to end the process, with the reason in the log.
TEST_F(TortureTest, DescriptorsThatAreRefusedEndTheProcess) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    const auto initWith = [](Call call, int nth) {
        __android_log_set_logger(
            [](const __android_logger_data*, const char* text) { puts(text); });
        const Torture failure(call, nth);
        Manager other;
        other.init(0, true);
        exit(0);
    };
    EXPECT_EXIT(initWith(Call::EpollCreate, 1), testing::KilledBySignal(SIGABRT), "");
    for (int nth = 1; nth <= 5; ++nth) {
        EXPECT_EXIT(initWith(Call::EventFd, nth), testing::KilledBySignal(SIGABRT), "");
    }
    EXPECT_EXIT(initWith(Call::EventFd, 6), testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace kiv::test
