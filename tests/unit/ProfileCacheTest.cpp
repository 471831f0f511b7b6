#include "ProfileCache.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

#include "ClientRequest.h"
#include "ClientResponse.h"
#include "EmulatedModem.h"
#include "LoggedTest.h"
#include "Params.h"

namespace kiv {
namespace {

using namespace test;
using testing::ElementsAre;
using testing::SizeIs;

constexpr auto k3gpp = WDS_PROFILE_TYPE_3GPP_V01;
constexpr const char* kTokenMissing = "ProfileCache: token is not present or expired";
constexpr const char* kConfirmed = "ProfileCache: pending transaction confirmed";
constexpr const char* kUpdating = "ProfileCache: updating cache due to indication!";

/// A cache whose worker thread is the test's own thread.
class ProfileCacheTest : public LoggedTest {
protected:
    ProfileCacheTest() {
        modem().factoryReset();
        modem().start();
        // As the request manager does, but on the thread that drops the key.
        cache = std::make_unique<ProfileCache>(
            events, 0, [this](const std::shared_ptr<ClientRequest>& request) {
                const auto callback = std::dynamic_pointer_cast<CallbackRequest>(request);
                if (callback->hasReleaseToken()) {
                    released = cache->releaseProfile(callback->getReleaseToken());
                }
                return nullptr;
            });
        serveUntil("RavWdsProxy config register request successful!");
    }
    ~ProfileCacheTest() override {
        // What the modem told is taken in before the cache goes, which would not free it.
        EXPECT_TRUE(modem().waitForDeliveries(kPatience));
        events.wake();
        events.processEvents();
        cache.reset();
        modem().stop();
        EXPECT_EQ(modem().openClients(), 0U);
    }

    /// Runs the loop until the line has been written so often since the last clear.
    void serveUntil(const std::string& line, size_t times = 1) {
        while (log.count(line) < times) {
            events.processEvents();
        }
    }
    static std::vector<emulator::Profile> table() { return modem().profiles(k3gpp); }
    std::shared_ptr<ProfileKey> only(const std::string& apnName) {
        FilterProfileParams filter;
        filter.setApnName(apnName);
        const auto keys = cache->filter(filter);
        return keys.size() == 1 ? keys.front() : nullptr;
    }

    EventManager events;
    std::unique_ptr<ProfileCache> cache;
    std::optional<bool> released;
};

TEST_F(ProfileCacheTest, RegistersWithTheModemOnceTheServiceIsUp) {
    const struct {
        unsigned messageId;
        size_t length;
        std::vector<std::pair<size_t, uint8_t>> bytes;  // all others are zero
    } rows[] = {{0x00AF, 4, {}},
                {0x0003, 398, {{16, 1}, {17, 1}}},
                {0x00A7, 2052, {{0, 1}, {4, 1}, {8, 255}, {12, 255}, {2048, 1}, {2049, 1}}}};
    for (size_t i = 0; i < 3; ++i) {
        std::vector<std::byte> expected(rows[i].length);
        for (const auto& [offset, value] : rows[i].bytes) {
            expected[offset] = std::byte{value};
        }
        const emulator::Request request = modem().requests().at(i);
        EXPECT_EQ(request.messageId, rows[i].messageId);
        EXPECT_EQ(request.bytes, expected);
    }
}

TEST_F(ProfileCacheTest, AddCreatesNamesAndExpectsItsOwnIndications) {
    const auto plain = cache->add(addParams("Plain"));
    const auto attach = cache->add(addParams("Attach", true, TechType::Tech3gpp, true));
    ASSERT_THAT(table(), SizeIs(2));
    EXPECT_STREQ(table()[0].settings.profile_name, "kiv_profile");
    EXPECT_STREQ(table()[1].settings.profile_name, "kiv_profile_ia");
    EXPECT_TRUE(table()[1].persistent);
    EXPECT_EQ(cache->dump().back(), "  3GPP:2 Modify");
    serveUntil(kConfirmed, 4);
    EXPECT_EQ(log.count(kUpdating), 0U);
    EXPECT_EQ(cache->dump().back(), "Pending:");
    // The next one is not ours.
    modem().modifyProfile(k3gpp, 1, settings3gpp("Other"));
    serveUntil(kUpdating);
    EXPECT_EQ(cache->get(plain)->getApnName(), "other");
    // Nor is one that differs from what is expected in its event.
    cache->modify(userName("u"), plain);
    modem().sendProfileChanged({k3gpp, 1, WDS_PROFILE_CHANGE_DELETED_V01});
    serveUntil(kUpdating, 2);
    EXPECT_FALSE(cache->get(plain));
    serveUntil(kConfirmed, 5);
}

TEST_F(ProfileCacheTest, EveryAddTakesATokenAlsoOneThatFails) {
    const auto first = cache->add(addParams("a"));
    refuse(RAV_WDS_CREATE_PROFILE_REQ_V01);
    EXPECT_FALSE(cache->add(addParams("b")));
    EXPECT_EQ(cache->add(addParams("c"))->getToken(), first->getToken() + 2);
}

TEST_F(ProfileCacheTest, ModifySendsOnlyWhatChangesAndHidesTheModemsRefusal) {
    const auto key = cache->add(addParams("apn"));
    EXPECT_TRUE(cache->modify(userName("u"), key));
    EXPECT_STREQ(table()[0].settings.user_name, "u");
    EXPECT_TRUE(cache->modify(userName("u"), key));
    EXPECT_EQ(requestCount(RAV_WDS_MODIFY_PROFILE_SETTINGS_REQ_V01), 1U);
    refuse(RAV_WDS_MODIFY_PROFILE_SETTINGS_REQ_V01);
    EXPECT_TRUE(cache->modify(userName("v"), key));
    EXPECT_EQ(cache->get(key)->getUserName(), "u");
    serveUntil(kConfirmed, 3);
}

TEST_F(ProfileCacheTest, RemoveTakesTheProfileFromEveryKey) {
    const auto key = cache->add(addParams("apn", true));
    const auto second = only("apn");
    refuse(RAV_WDS_DELETE_PROFILE_REQ_V01);
    EXPECT_FALSE(cache->remove(key));
    EXPECT_TRUE(cache->remove(key));
    EXPECT_THAT(table(), SizeIs(0));
    EXPECT_FALSE(cache->get(second));
    EXPECT_FALSE(cache->remove(second));
    EXPECT_EQ(log.count(kTokenMissing), 2U);
    EXPECT_FALSE(cache->modify(userName("u"), second));
    serveUntil(kConfirmed, 3);
}

TEST_F(ProfileCacheTest, LastKeyTakesWithItOnlyWhatTheLibraryMadeAsNonPersistent) {
    const struct {
        bool persistent;
        bool refreshed;
        size_t left;
    } rows[] = {{false, false, 0}, {true, false, 1}, {false, true, 1}};
    for (const auto& row : rows) {
        modem().factoryReset();
        cache->refresh();
        log.clear();
        auto key = cache->add(addParams("apn", row.persistent));
        if (row.refreshed) {
            cache->refresh();
            key = only("apn");
        }
        auto second = only("apn");
        key.reset();
        EXPECT_EQ(released, true);
        EXPECT_THAT(table(), SizeIs(1));
        second.reset();
        EXPECT_EQ(released, true);
        EXPECT_THAT(table(), SizeIs(row.left));
        EXPECT_THAT(cache->filter(FilterProfileParams()), SizeIs(row.left));
        serveUntil(kConfirmed, 3 - row.left);
    }
    // What the modem refuses to delete stays.
    auto key = cache->add(addParams("other"));
    refuse(RAV_WDS_DELETE_PROFILE_REQ_V01);
    key.reset();
    EXPECT_EQ(released, false);
    EXPECT_TRUE(only("other"));
}

TEST_F(ProfileCacheTest, RefreshReadsBothTablesAndKeepsUnreadableEntries) {
    modem().createProfile(WDS_PROFILE_TYPE_3GPP2_V01, {}, true);
    modem().createProfile(k3gpp, settings3gpp("one"), true);
    modem().createProfile(k3gpp, settings3gpp("two"), true);
    refuse(RAV_WDS_GET_PROFILE_SETTINGS_REQ_V01, 2);
    EXPECT_TRUE(cache->refresh());
    EXPECT_THAT(cache->filter(FilterProfileParams()), SizeIs(2));
    refuse(RAV_WDS_GET_PROFILE_LIST_REQ_V01);
    cache->refresh();
    EXPECT_THAT(cache->filter(FilterProfileParams()), SizeIs(0));
}

TEST_F(ProfileCacheTest, IndicationsOfOthersUpdateTheCache) {
    const auto change = [](int event, uint32_t index) {
        const auto kind = static_cast<wds_profile_change_enum_v01>(event);
        modem().sendProfileChanged({k3gpp, index, kind});
    };
    const FilterProfileParams all;
    modem().createProfile(k3gpp, settings3gpp("one"), true);
    modem().createProfile(k3gpp, settings3gpp("two"), true);
    serveUntil(kUpdating, 4);  // each created and modified
    // Cached twice: under a second token after a second word of its creation.
    change(WDS_PROFILE_CHANGE_CREATED_V01, 1);
    serveUntil(kUpdating, 5);
    EXPECT_THAT(cache->filter(all), SizeIs(3));
    modem().deleteProfile(k3gpp, 1);
    serveUntil(kUpdating, 6);
    EXPECT_THAT(cache->filter(all), SizeIs(1));

    // The index counts by its low 8 bits; an unknown event means ready, which reads everything.
    log.clear();
    change(0, 0x105);
    serveUntil("ProfileCache: onIndication < 3GPP:5 ProfileReady");
    EXPECT_TRUE(log.contains("Refreshed Profiles:"));
}

TEST_F(ProfileCacheTest, ListenersOfLiveKeysHearThatTheProfileWent) {
    const auto key = cache->add(addParams("apn", true));
    auto other = only("apn");
    serveUntil(kConfirmed, 2);
    std::vector<int> heard;
    const auto held = std::make_shared<int>();
    const auto listen = [&](const std::shared_ptr<ProfileKey>& with, int number) {
        const auto note = [&heard, held, number] { heard.push_back(number); };
        EXPECT_FALSE(cache->registerExpirationListener(note, with, key->getToken()));
    };
    listen(key, 1);
    listen(other, 2);
    listen(key, 3);
    const auto owners = held.use_count();
    other.reset();
    EXPECT_EQ(held.use_count(), owners - 1) << "what nobody waits for is forgotten";
    modem().modifyProfile(k3gpp, 1, settings3gpp("apn"));
    serveUntil(kUpdating);
    EXPECT_THAT(heard, ElementsAre(1, 3));
    listen(key, 4);
    cache->refresh();
    listen(key, 5);
    EXPECT_TRUE(log.contains(kTokenMissing));
    EXPECT_THAT(heard, ElementsAre(1, 3, 4));
}

TEST_F(ProfileCacheTest, AStreamOfIndicationsLeavesTurnsToOthers) {
    for (int i = 0; i < 6; ++i) {
        modem().sendProfileChanged({WDS_PROFILE_TYPE_3GPP_V01, 9, WDS_PROFILE_CHANGE_DELETED_V01});
    }
    ASSERT_TRUE(modem().waitForDeliveries(test::kPatience));
    events.processEvents();
    EXPECT_EQ(log.count(kUpdating), 4U);
    serveUntil(kUpdating, 6);
}

TEST_F(ProfileCacheTest, IndicationsThatSayNothingAreLoggedAndDropped) {
    const std::vector<std::byte> empty = {std::byte{0x7F}, std::byte{0}, std::byte{0}};
    modem().sendIndication(RAV_WDS_PROFILE_CHANGED_IND_V01, empty);
    serveUntil("Profile changed ind TLV is not valid");
    modem().sendIndication(0x1234, empty);
    serveUntil("Unknown message ID 4660 received");
}

TEST_F(ProfileCacheTest, LyingListIsReadNoFurtherThanItReaches) {
    emulator::Fault fault;
    fault.messageId = RAV_WDS_GET_PROFILE_LIST_REQ_V01;
    fault.rewrite = [](void* response, size_t length) {
        memset(response, 0xFF, length);
        static_cast<wds_common_resp_msg_v01*>(response)->resp.result = WDS_RESULT_SUCCESS_V01;
    };
    modem().addFault(fault);
    cache->refresh();
    EXPECT_EQ(requestCount(RAV_WDS_GET_PROFILE_SETTINGS_REQ_V01), 255U);
    EXPECT_TRUE(log.contains("Unknown tech type -1"));
}

}  // namespace
}  // namespace kiv
