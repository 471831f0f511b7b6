#include <cstring>

#include "ModemTest.h"

namespace kiv::emulator {
namespace {

constexpr unsigned kCreate = RAV_WDS_CREATE_PROFILE_REQ_V01;

class RequestsTest : public ModemTest {
protected:
    uint32_t modify(wds_profile_type_enum_v01 type, uint8_t index,
                    const wds_profile_settings_type_v01& settings = {}) {
        wds_modify_profile_settings_req_msg_v01 request{};
        request.profile = {type, index};
        request.settings = settings;
        wds_modify_profile_settings_resp_msg_v01 response;
        return client.ask(RAV_WDS_MODIFY_PROFILE_SETTINGS_REQ_V01, request, response);
    }
    uint32_t remove(wds_profile_type_enum_v01 type, uint8_t index) {
        const wds_delete_profile_req_msg_v01 request{{type, index}};
        wds_delete_profile_resp_msg_v01 response;
        return client.ask(RAV_WDS_DELETE_PROFILE_REQ_V01, request, response);
    }
    uint32_t get(wds_profile_type_enum_v01 type, uint8_t index) {
        const wds_get_profile_settings_req_msg_v01 request{{type, index}};
        return client.ask(RAV_WDS_GET_PROFILE_SETTINGS_REQ_V01, request, got);
    }
    TestClient client;
    wds_get_profile_settings_resp_msg_v01 got;
};

TEST_F(RequestsTest, TablesGiveOutTheLowestFreeIndexUntilTheyAreFull) {
    for (const auto& [type, first] : {std::pair(k3gpp, 1U), std::pair(k3gpp2, 0U)}) {
        for (unsigned i = 0; i < 255; ++i) {
            ASSERT_EQ(client.create(type), WDS_ERR_NONE_V01);
            ASSERT_EQ(client.created.profile.profile_index, first + i);
        }
        EXPECT_EQ(client.create(type), WDS_ERR_PROFILE_TABLE_FULL_V01);
        EXPECT_EQ(remove(type, 200), WDS_ERR_NONE_V01);
        EXPECT_EQ(client.create(type), WDS_ERR_NONE_V01);
        EXPECT_EQ(client.created.profile.profile_index, 200);
        EXPECT_TRUE(modem().setCapacity(type, 0));
        EXPECT_EQ(modem().profiles(type).size(), 255U) << "what is there is kept";
    }
}

TEST_F(RequestsTest, UnknownProfilesAndTypesAreRefused) {
    const auto kNoType = static_cast<wds_profile_type_enum_v01>(2);
    EXPECT_EQ(modify(k3gpp, 7), WDS_ERR_UNKNOWN_PROFILE_V01);
    EXPECT_EQ(remove(k3gpp, 7), WDS_ERR_UNKNOWN_PROFILE_V01);
    EXPECT_EQ(get(k3gpp, 7), WDS_ERR_UNKNOWN_PROFILE_V01);
    EXPECT_EQ(modify(kAll, 7), WDS_ERR_INVALID_PROFILE_TYPE_V01);
    EXPECT_EQ(client.create(kNoType), WDS_ERR_INVALID_PROFILE_TYPE_V01);
    wds_configure_profile_event_list_req_msg_v01 endless{};
    endless.profile_event_valid = 1;
    endless.profile_event_len = 256;
    wds_common_resp_msg_v01 response;
    EXPECT_EQ(client.ask(RAV_WDS_CONFIGURE_PROFILE_EVENT_LIST_REQ_V01, endless, response),
              WDS_ERR_MALFORMED_MESSAGE_V01);
}

TEST_F(RequestsTest, SettingsComeBackCleanAndOfTheirOwnTechnologyOnly) {
    wds_create_profile_req_msg_v01 request;
    std::memset(&request, 0xFF, sizeof(request));
    request.profile_type = k3gpp2;
    auto& sent = request.settings;
    for (char* text : {sent.apn_string_3gpp2, sent.user_id_3gpp2, sent.password_3gpp2,
                       sent.pdn_level_user_id_3gpp2}) {
        std::strcpy(text, "text");
    }
    EXPECT_EQ(client.create(request), WDS_ERR_MALFORMED_MESSAGE_V01);
    sent.pdn_level_password_3gpp2[WDS_PASSWORD_SIZE_V01 - 1] = '\0';
    EXPECT_EQ(client.create(request), WDS_ERR_NONE_V01);

    EXPECT_EQ(get(k3gpp2, 0), WDS_ERR_NONE_V01);
    const auto& stored = got.settings;
    EXPECT_STREQ(stored.apn_string_3gpp2, "text");
    EXPECT_EQ(std::strlen(stored.pdn_level_password_3gpp2), 127U);
    // From the first to the last member of the other technology.
    const char* const begin = reinterpret_cast<const char*>(&stored.profile_name_valid);
    const char* const end = reinterpret_cast<const char*>(&stored.apn_string_3gpp2_valid);
    EXPECT_TRUE(std::all_of(begin, end, [](char byte) { return byte == 0; }));
}

TEST_F(RequestsTest, AnAnswerThatComesTooLateLeavesTheCallersMemoryAlone) {
    // The modem is busy with the answer to another request.
    Events busy, gate;
    modem().setHook([&](const Request& request, void*, size_t) {
        busy.add("");
        gate.waitForCount(request.messageId == kCreate ? 0 : 1);
    });
    std::thread other([&] { remove(k3gpp, 1); });
    busy.waitForCount(1);
    TestClient late;
    std::memset(&late.created, 0xA5, sizeof(late.created));
    const auto before = late.created;
    EXPECT_EQ(late.sendCreate(k3gpp, 1), RAV_CLIENT_ERR_TIMEOUT);
    gate.add("open");
    other.join();
    EXPECT_TRUE(modem().waitForDeliveries(kPatience));
    modem().setHook(nullptr);
    EXPECT_EQ(std::memcmp(&late.created, &before, sizeof(before)), 0);
    EXPECT_EQ(modem().profiles(k3gpp).size(), 1U) << "the modem carries it out all the same";
    EXPECT_EQ(modem().requests().at(1).transportResult, RAV_CLIENT_ERR_TIMEOUT);
}

}  // namespace
}  // namespace kiv::emulator
