
#include "ModemTest.h"

namespace kiv::emulator {
namespace {

using Bytes = std::vector<unsigned char>;
using InterfaceTest = ModemTest;

constexpr unsigned kBind = RAV_WDS_BIND_SUBSCRIPTION_REQ_V01;

/// What the decoder reads: type, index and change, or why it reads nothing.
std::string decode(rav_client_type client, const Bytes& bytes) {
    // A block of exactly the length, so that a read beyond it is found out.
    Bytes copy(bytes);
    wds_profile_changed_ind_msg_v01 message{};
    const int result = rav_client_message_decode(
        client, RAV_MESSAGE_INDICATION, RAV_WDS_PROFILE_CHANGED_IND_V01, copy.data(),
        static_cast<unsigned>(bytes.size()), &message, sizeof(message));
    const auto& change = message.profile_changed;
    if (result != RAV_CLIENT_OK || !message.profile_changed_valid) {
        return result == RAV_CLIENT_OK ? "nothing" : "malformed";
    }
    return std::to_string(change.profile_type) + " " + std::to_string(change.profile_index) + " " +
           std::to_string(change.change);
}

int sendTo(rav_client_type client, unsigned id, const void* request, unsigned requestLength,
           void* response, unsigned responseLength) {
    return rav_client_send_msg_sync(client, id, request, requestLength, response, responseLength,
                                    kTimeout);
}

TEST_F(InterfaceTest, HandlesThatAreNoneAreRefused) {
    rav_client_os_params parameters{};
    rav_client_type notifier = nullptr;
    EXPECT_EQ(rav_client_notifier_init(service(), &parameters, &notifier), RAV_CLIENT_OK);
    TestClient released;
    EXPECT_EQ(released.release(), RAV_CLIENT_OK);
    TestClient open;
    const auto callback = [](auto...) {};
    for (const rav_client_type handle : {rav_client_type(), released.handle, notifier}) {
        unsigned char in[4]{}, out[8];
        EXPECT_EQ(sendTo(handle, kBind, in, 4, out, 8), RAV_CLIENT_ERR_INVALID);
        EXPECT_EQ(decode(handle, {}), decode(open.handle, {})) << "decoding needs no client";
        EXPECT_EQ(rav_client_register_error_cb(handle, callback, nullptr), RAV_CLIENT_ERR_INVALID);
        EXPECT_EQ(rav_client_release(handle),
                  handle == notifier ? RAV_CLIENT_OK : RAV_CLIENT_ERR_INVALID);
        EXPECT_EQ(rav_client_register_notify_cb(handle, callback, nullptr), RAV_CLIENT_ERR_INVALID);
    }
    EXPECT_EQ(modem().openClients(), 1U);
}

TEST_F(InterfaceTest, RequestsOfTheWrongShapeAreRefused) {
    TestClient client;
    unsigned char in[4]{}, out[8];
    EXPECT_EQ(sendTo(client.handle, kBind, in, 4, out, 8), RAV_CLIENT_OK);
    EXPECT_EQ(sendTo(client.handle, kBind, in, 3, out, 8), RAV_CLIENT_ERR_MALFORMED);
    EXPECT_EQ(sendTo(client.handle, kBind, in, 4, out, 4), RAV_CLIENT_ERR_MALFORMED);
    EXPECT_EQ(sendTo(client.handle, kBind, nullptr, 4, out, 8), RAV_CLIENT_ERR_INVALID);
    EXPECT_EQ(modem().requests().size(), 1U) << "the modem saw the good one only";
}

}  // namespace
}  // namespace kiv::emulator
