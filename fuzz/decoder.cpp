// Any bytes into the decoder of the messaging client.

#include "FuzzInput.h"
#include "Library.h"

using namespace kiv::fuzz;

namespace {

rav_client_type openClient() {
    const auto service = wds_get_service_object_internal_v01(1, 241, 6);
    static rav_client_os_params parameters{};
    rav_service_info info{};
    rav_client_type client = nullptr;
    modem().start();
    require(rav_client_get_any_service(service, &info) == RAV_CLIENT_OK);
    require(rav_client_init(&info, service, nullptr, nullptr, &parameters, &client) ==
            RAV_CLIENT_OK);
    return client;
}

int decode(const std::vector<std::byte>& bytes, wds_profile_changed_ind_msg_v01& message) {
    static const rav_client_type client = openClient();
    return rav_client_message_decode(
        client, RAV_MESSAGE_INDICATION, RAV_WDS_PROFILE_CHANGED_IND_V01, bytes.data(),
        static_cast<unsigned>(bytes.size()), &message, sizeof(message));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    wds_profile_changed_ind_msg_v01 message{};
    if (decode(FuzzInput(data, size).take(size), message) != RAV_CLIENT_OK ||
        !message.profile_changed_valid) {
        return 0;
    }
    const auto& change = message.profile_changed;
    wds_profile_changed_ind_msg_v01 again{};
    require(decode(kiv::emulator::ModemEmulator::encodeProfileChanged(change), again) ==
            RAV_CLIENT_OK);
    require(std::memcmp(&again.profile_changed, &change, sizeof(change)) == 0);
    return 0;
}
