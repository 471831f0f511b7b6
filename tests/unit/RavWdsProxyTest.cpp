#include "RavWdsProxy.h"

#include <gmock/gmock.h>

#include "ClientRequestManager.h"
#include "EmulatedModem.h"
#include "LoggedTest.h"
#include "Params.h"

namespace kiv {
namespace {

using namespace test;

constexpr auto k3gpp = WDS_PROFILE_TYPE_3GPP_V01;
constexpr const char* kRegistered = "RavWdsProxy config register request successful!";

/// Stops a loop when the nth request to read something has been answered, or has not.
class StopsLoop final : public LogWriter {
public:
    StopsLoop(EventManager& loop, int nth) : loop(loop), left(nth) {}
    void write(LogLevel /*level*/, std::string /*tag*/, std::string text) override {
        if (text.find("RAV_WDS_GET_PROFILE") != std::string::npos && --left == 0) {
            loop.stop();
        }
    }
    int convertPrio(LogLevel /*level*/) override { return 0; }

private:
    EventManager& loop;
    int left;
};

/// A proxy whose worker thread is the test's own thread.
class RavWdsProxyTest : public LoggedTest {
protected:
    RavWdsProxyTest() {
        modem().factoryReset();
        modem().start();
        proxy = std::make_unique<RavWdsProxy>(events, 0);
        while (!log.contains(kRegistered)) {
            events.processEvents();
        }
    }
    ~RavWdsProxyTest() override {
        proxy.reset();
        modem().factoryReset();
        modem().stop();
        EXPECT_EQ(modem().openClients(), 0U);
    }

    EventManager events;
    std::unique_ptr<RavWdsProxy> proxy;
};

TEST_F(RavWdsProxyTest, RequestsAreSentThoughTheLoopIsStopped) {
    events.stop();
    Modem3gppProfile profile(addParams("apn"));
    ASSERT_TRUE(proxy->add(profile));
    profile.setApnName("other");
    EXPECT_TRUE(proxy->modify(profile, TechType::Tech3gpp, profile.getProfileId()));
    EXPECT_STREQ(modem().profiles(k3gpp).at(0).settings.apn_name, "other");
    EXPECT_TRUE(proxy->get(TechType::Tech3gpp, profile.getProfileId()));
    EXPECT_TRUE(proxy->remove(TechType::Tech3gpp, profile.getProfileId()));
    EXPECT_THAT(modem().profiles(k3gpp), testing::IsEmpty());
}

TEST_F(RavWdsProxyTest, ReadingAllProfilesOfASilentModemEndsWithTheRequestInHand) {
    for (int i = 0; i < 3; ++i) {
        modem().createProfile(k3gpp, settings3gpp("apn"), true);
        modem().createProfile(WDS_PROFILE_TYPE_3GPP2_V01, {}, true);
    }
    emulator::Fault silence;
    silence.messageId = RAV_WDS_GET_PROFILE_SETTINGS_REQ_V01;
    silence.every = 1;
    silence.transportResult = RAV_CLIENT_ERR_TIMEOUT;
    modem().addFault(silence);
    // The last one, which nobody stops, is the last row: a loop is stopped for good.
    for (const auto& [stoppedAt, lists, reads] :
         {std::tuple(1, 1U, 0U), {2, 1, 1}, {4, 1, 3}, {5, 2, 3}, {6, 2, 4}, {9, 2, 6}}) {
        SCOPED_TRACE(stoppedAt);
        EventManager loop;
        RavWdsProxy reader(loop, 0);
        log.clear();
        while (!log.contains(kRegistered)) {
            loop.processEvents();
        }
        const size_t listsBefore = requestCount(RAV_WDS_GET_PROFILE_LIST_REQ_V01);
        const size_t readsBefore = requestCount(RAV_WDS_GET_PROFILE_SETTINGS_REQ_V01);
        LogWrapper::getInstance().setLogWriter(std::make_unique<StopsLoop>(loop, stoppedAt));
        EXPECT_EQ(reader.getAllProfiles().size(), reads);
        LogWrapper::getInstance().setLogWriter(std::make_unique<LevelWriter>());
        EXPECT_EQ(requestCount(RAV_WDS_GET_PROFILE_LIST_REQ_V01) - listsBefore, lists);
        EXPECT_EQ(requestCount(RAV_WDS_GET_PROFILE_SETTINGS_REQ_V01) - readsBefore, reads);
    }
}

TEST_F(RavWdsProxyTest, TheIndicationInHandWhenTheLoopIsStoppedIsTheLast) {
    std::vector<ProfileChangedInd> heard;
    proxy->registerProfileChangedInd([&](const ProfileChangedInd& ind) {
        heard.push_back(ind);
        events.defer([this] { proxy->remove(TechType::Tech3gpp, 7); });
        if (ind.profileId == 2) {
            events.stop();
        }
    });
    for (const uint32_t index : {1, 2, 3}) {
        modem().sendProfileChanged({k3gpp, index, WDS_PROFILE_CHANGE_MODIFIED_V01});
    }
    ASSERT_TRUE(modem().waitForDeliveries(kPatience));
    events.processEvents();
    EXPECT_THAT(heard, testing::ElementsAre(
                           ProfileChangedInd{TechType::Tech3gpp, 1, ProfileChangeEvent::Modify},
                           ProfileChangedInd{TechType::Tech3gpp, 2, ProfileChangeEvent::Modify}));
    EXPECT_EQ(requestCount(RAV_WDS_DELETE_PROFILE_REQ_V01), 2U);
}

TEST_F(RavWdsProxyTest, ServiceThatComesWhenTheLoopIsStoppedIsNotConnected) {
    EventManager loop;
    RavWdsProxy late(loop, 0);
    loop.stop();
    const size_t requests = modem().requests().size();
    ASSERT_TRUE(modem().waitForDeliveries(kPatience));
    loop.processEvents();
    EXPECT_EQ(log.count("RavWdsProxy service is up, trying to initialize svc client"), 2U);
    EXPECT_EQ(modem().requests().size(), requests);
}

TEST_F(RavWdsProxyTest, IndicationsAreServedInOrderUntilNoneIsLeft) {
    for (const auto& bytes : {modem().encodeProfileChanged({k3gpp, 1, {}}), {std::byte{16}}}) {
        std::vector<std::byte> indication = bytes;
        RavWdsProxy::ravIndCb(nullptr, RAV_WDS_BIND_SUBSCRIPTION_REQ_V01, indication.data(),
                              static_cast<unsigned>(indication.size()), proxy.get());
    }
    log.clear();
    events.processEvents();
    std::vector<std::string> texts;
    for (const std::string& text : log.texts()) {
        if (text.starts_with("RavWdsProxy: ") || text.starts_with("Unknown ")) {
            texts.push_back(text);
        }
    }
    const std::string size = "RavWdsProxy: handleIndication indQueue.size[";
    EXPECT_THAT(texts,
                testing::ElementsAre(size + "2]", "Unknown message ID 175 received", size + "1]",
                                     "Unknown message ID 175 received", size + "0]"));
}

TEST_F(RavWdsProxyTest, CallbacksThatCannotWakeTheLoopSaySo) {
    modem().stop();  // the service would wake it
    log.clear();
    RavWdsProxy deaf(events, 0);
    for (const std::string& text : log.texts()) {
        int fd = -1;
        const uint64_t most = ~uint64_t{0} - 1;
        if (sscanf(text.c_str(), "EventManager::addEventHandler(int %d", &fd) == 1) {
            ASSERT_EQ(write(fd, &most, sizeof(most)), 8);
        }
    }
    unsigned char byte = 0;
    log.clear();
    RavWdsProxy::ravNotifyCb(nullptr, nullptr, RAV_CLIENT_SERVICE_APPEARED, &deaf);
    RavWdsProxy::ravErrorCb(nullptr, 0, &deaf);
    RavWdsProxy::ravIndCb(nullptr, 0, &byte, 1, &deaf);
    const std::string reason = "Resource temporarily unavailable";
    EXPECT_THAT(takeLines(),
                testing::ElementsAre("ERROR error in writing rv:-1, error:" + reason,
                                     "DEBUG src/RavWdsProxy:160:ravErrorCb",
                                     "ERROR error in writing rv: -1, error: " + reason,
                                     "ERROR Error in writing rv: -1, error: " + reason));
}

TEST_F(RavWdsProxyTest, IndicationWithoutAReceiverIsLogged) {
    modem().sendProfileChanged({k3gpp, 1, WDS_PROFILE_CHANGE_MODIFIED_V01});
    ASSERT_TRUE(modem().waitForDeliveries(kPatience));
    events.processEvents();
    EXPECT_THAT(takeLines(),
                testing::Contains("DEBUG RavWdsProxy::no profileChangedIndCb registered!"));
}

TEST_F(RavWdsProxyTest, CallbacksThatLackWhatTheyNeedOnlyLog) {
    static unsigned char bytes[3] = {};
    static OwnedFd fd(createEventFd());
    const std::string nothingToQueue = "The ind_cb_data/ind_buf is null or ind_buf_len is ";
    const struct {
        std::string error;
        std::function<void()> call;
    } rows[] = {
        {"RavWdsProxy instance is null",
         [] { RavWdsProxy::ravNotifyCb(nullptr, nullptr, RAV_CLIENT_SERVICE_APPEARED, nullptr); }},
        {"RavWdsProxy notify cb: unsupported service event",
         [this] {
             RavWdsProxy::ravNotifyCb(nullptr, nullptr, RAV_CLIENT_SERVICE_DISAPPEARED,
                                      proxy.get());
         }},
        {"RavWdsProxy NULL in ravErrorCb", [] { RavWdsProxy::ravErrorCb(nullptr, 0, nullptr); }},
        {nothingToQueue + "0", [this] { RavWdsProxy::ravIndCb({}, 168, bytes, 0, proxy.get()); }},
        {nothingToQueue + "3", [this] { RavWdsProxy::ravIndCb({}, 168, nullptr, 3, proxy.get()); }},
        {nothingToQueue + "3", [] { RavWdsProxy::ravIndCb({}, 168, bytes, 3, nullptr); }},
        {"RavWdsProxy instance is null", [] { RavWdsProxy::handleSvcUp(fd.get(), nullptr); }},
        {"arg is null", [] { RavWdsProxy::handleError(fd.get(), nullptr); }},
        {"RavWdsProxy nullptr in handleIndication",
         [] { RavWdsProxy::handleIndication(fd.get(), nullptr); }},
        {"arg is null", [] { ClientRequestManager::handleClientRequest(fd.get(), nullptr); }},
    };
    for (const auto& [error, call] : rows) {
        log.clear();
        call();
        EXPECT_EQ(takeLines().back(), "ERROR " + error);
    }
    // None of them woke the loop for anything: it handles what wakes it here alone.
    log.clear();
    events.wake();
    events.processEvents();
    EXPECT_EQ(log.count("there are 1 file descriptor(s) with events pending"), 1U);
}

}  // namespace
}  // namespace kiv
