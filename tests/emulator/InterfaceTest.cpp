#include <cstdlib>
#include <memory>

#include "ModemTest.h"
#include "diag_log.h"

namespace kiv::emulator {
namespace {

using testing::ElementsAre;
using Bytes = std::vector<unsigned char>;

using InterfaceTest = ModemTest;

int decode(rav_client_type client, const Bytes& bytes, wds_profile_changed_ind_msg_v01& message) {
    // A block of exactly the length, so that a read beyond it is found out.
    const std::unique_ptr<unsigned char[]> copy(new unsigned char[bytes.size()]);
    std::copy(bytes.begin(), bytes.end(), copy.get());
    return rav_client_message_decode(
        client, RAV_MESSAGE_INDICATION, RAV_WDS_PROFILE_CHANGED_IND_V01, copy.get(),
        static_cast<unsigned>(bytes.size()), &message, sizeof(message));
}

TEST_F(InterfaceTest, TheDecoderBelievesNothing) {
    const Bytes kChange{0x10, 12, 0, 1, 0, 0, 0, 44, 1, 0, 0, 0xFE, 0xFF, 0xFF, 0xFF};
    const Bytes kOther{0x11, 2, 0, 0xAA, 0xBB};
    const auto join = [](Bytes left, const Bytes& right) {
        left.insert(left.end(), right.begin(), right.end());
        return left;
    };
    const struct {
        Bytes bytes;
        int result;
        bool valid;
    } kCases[] = {
        {kChange, RAV_CLIENT_OK, true},
        {join(kOther, kChange), RAV_CLIENT_OK, true},
        {join(kChange, kOther), RAV_CLIENT_OK, true},
        {{}, RAV_CLIENT_OK, false},
        {kOther, RAV_CLIENT_OK, false},
        {{0x11, 0, 0}, RAV_CLIENT_OK, false},
        {{0x10, 0, 0}, RAV_CLIENT_ERR_MALFORMED, false},
        {{0x10, 4, 0, 1, 2, 3, 4}, RAV_CLIENT_ERR_MALFORMED, false},
        {join({0x10, 13, 0}, Bytes(13)), RAV_CLIENT_ERR_MALFORMED, false},
        {{0x11, 0xFF, 0xFF}, RAV_CLIENT_ERR_MALFORMED, false},
        {join(kChange, {0x11}), RAV_CLIENT_ERR_MALFORMED, false},
        {join(kChange, {0x11, 1, 0}), RAV_CLIENT_ERR_MALFORMED, false},
    };
    TestClient client;
    for (const auto& c : kCases) {
        wds_profile_changed_ind_msg_v01 message;
        ASSERT_EQ(decode(client.handle, c.bytes, message), c.result);
        if (c.result == RAV_CLIENT_OK) {
            ASSERT_EQ(message.profile_changed_valid, c.valid);
        }
        if (c.valid) {
            EXPECT_EQ(message.profile_changed.profile_type, WDS_PROFILE_TYPE_3GPP2_V01);
            EXPECT_EQ(message.profile_changed.profile_index, 300U);
            EXPECT_EQ(message.profile_changed.change, -2);
        }
    }
    for (size_t length = 1; length < kChange.size(); ++length) {
        wds_profile_changed_ind_msg_v01 message;
        EXPECT_EQ(decode(client.handle, {kChange.begin(), kChange.begin() + length}, message),
                  RAV_CLIENT_ERR_MALFORMED);
    }
}

TEST_F(InterfaceTest, HandlesThatAreNoneAreRefused) {
    rav_client_os_params parameters{};
    rav_client_type notifier = nullptr;
    EXPECT_EQ(rav_client_notifier_init(service(), &parameters, &notifier), RAV_CLIENT_OK);
    TestClient released;
    EXPECT_EQ(released.release(), RAV_CLIENT_OK);
    TestClient open;
    int any = 0;
    const rav_client_type kHandles[] = {nullptr, released.handle, notifier,
                                        reinterpret_cast<rav_client_type>(&any)};
    for (const rav_client_type handle : kHandles) {
        const wds_bind_subscription_req_msg_v01 request{};
        wds_common_resp_msg_v01 response;
        wds_profile_changed_ind_msg_v01 message;
        EXPECT_EQ(rav_client_send_msg_sync(handle, RAV_WDS_BIND_SUBSCRIPTION_REQ_V01, &request,
                                           sizeof(request), &response, sizeof(response), 1),
                  RAV_CLIENT_ERR_INVALID);
        EXPECT_EQ(decode(handle, {}, message), RAV_CLIENT_ERR_INVALID);
        EXPECT_EQ(rav_client_register_error_cb(
                      handle, [](auto...) {}, nullptr),
                  RAV_CLIENT_ERR_INVALID);
        EXPECT_EQ(rav_client_release(handle),
                  handle == notifier ? RAV_CLIENT_OK : RAV_CLIENT_ERR_INVALID);
        EXPECT_EQ(rav_client_register_notify_cb(
                      handle, [](auto...) {}, nullptr),
                  RAV_CLIENT_ERR_INVALID);
    }
    EXPECT_EQ(modem().openClients(), 1U);
}

TEST_F(InterfaceTest, RequestsOfTheWrongShapeAreRefused) {
    TestClient client;
    unsigned char in[8]{}, out[8];
    const auto send = [&](unsigned id, const void* request, unsigned requestLength, void* response,
                          unsigned responseLength) {
        return rav_client_send_msg_sync(client.handle, id, request, requestLength, response,
                                        responseLength, kTimeout);
    };
    constexpr unsigned kBind = RAV_WDS_BIND_SUBSCRIPTION_REQ_V01;
    EXPECT_EQ(send(kBind, in, 4, out, 8), RAV_CLIENT_OK);
    EXPECT_EQ(send(kBind, in, 3, out, 8), RAV_CLIENT_ERR_MALFORMED);
    EXPECT_EQ(send(kBind, in, 4, out, 4), RAV_CLIENT_ERR_MALFORMED);
    EXPECT_EQ(send(kBind, nullptr, 4, out, 8), RAV_CLIENT_ERR_INVALID);
    EXPECT_EQ(send(kBind, in, 4, nullptr, 8), RAV_CLIENT_ERR_INVALID);
    EXPECT_EQ(send(RAV_WDS_PROFILE_CHANGED_IND_V01, in, 4, out, 8), RAV_CLIENT_ERR_INVALID);
    EXPECT_EQ(modem().requests().size(), 1U) << "the modem saw the good one only";
}

TEST_F(InterfaceTest, CallsFailOnceWhenTheyAreToldTo) {
    using Call = ModemEmulator::Call;
    rav_service_info info{};
    modem().failNextCall(Call::GetServiceObject, RAV_CLIENT_ERR_INVALID);
    modem().failNextCall(Call::GetAnyService, RAV_CLIENT_ERR_NO_MEMORY);
    EXPECT_EQ(service(), nullptr);
    EXPECT_EQ(rav_client_get_any_service(service(), &info), RAV_CLIENT_ERR_NO_MEMORY);
    EXPECT_EQ(rav_client_get_any_service(service(), &info), RAV_CLIENT_OK);
    EXPECT_EQ(wds_get_service_object_internal_v01(1, 240, 6), nullptr);
}

TEST_F(InterfaceTest, TheDiagnosticLogKeepsLinesWhileItHasUsers) {
    static const diag_msg_descriptor kDescriptor{1, 63, 4, "|%s| %s", "file"};
    const std::string longText(2000, 'x');
    msg_sprintf(&kDescriptor, "TAG", "lost");
    EXPECT_EQ(Diag_LSM_DeInit(), 0);
    EXPECT_NE(Diag_LSM_Init(nullptr), 0);
    EXPECT_NE(Diag_LSM_Init(nullptr), 0);
    EXPECT_NE(Diag_LSM_DeInit(), 0);
    EXPECT_EQ(modem().diagUsers(), 1);
    msg_sprintf(&kDescriptor, "TAG", longText.c_str());
    EXPECT_NE(Diag_LSM_DeInit(), 0);
    const auto lines = modem().takeDiagLines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].mask, 4U);
    EXPECT_EQ(lines[0].text, "|TAG| " + longText);
}

/// Outlives main, as a library's own static objects do.
struct StaticClient {
    ~StaticClient() { client->release(); }
    TestClient* const client = new TestClient;
};

TEST_F(InterfaceTest, AProcessMayEndInTheMiddleOfACallbackAndReleaseThenOnly) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            static const StaticClient last;
            auto& stuck = *new TestClient;
            stuck.registerForEverything();
            stuck.onEachIndication = [] { Events().waitForCount(1); };
            modem().sendProfileChanged({WDS_PROFILE_TYPE_3GPP_V01, 1, {}});
            stuck.events.waitForCount(1);
            std::exit(7);
        },
        testing::ExitedWithCode(7), "");
}

}  // namespace
}  // namespace kiv::emulator
