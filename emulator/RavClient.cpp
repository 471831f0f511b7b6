// The C interface of the messaging client. It checks what it is given, so that the modem behind it
// need not, and lets no exception through to callers that may not know of any.

#include "rav_client.h"

#include <cstring>
#include <exception>
#include <span>
#include <vector>

#include "Encoding.h"
#include "Modem.h"

struct rav_service_object {
    int32_t major;
    int32_t minor;
    int32_t libraryVersion;
};

namespace {

using kiv::emulator::Modem;
using kiv::emulator::ModemEmulator;
using Call = ModemEmulator::Call;

constexpr rav_service_object kDataService{
    WDS_SERVICE_MAJOR_VERSION_V01, WDS_SERVICE_MINOR_VERSION_V01, WDS_SERVICE_LIBRARY_VERSION_V01};

bool isService(rav_service_object_type service) { return service == &kDataService; }

template <class Operation>
int withoutExceptions(Operation operation) {
    try {
        return operation();
    } catch (const std::exception&) {
        // Out of memory or of threads.
        return RAV_CLIENT_ERR_NO_MEMORY;
    }
}

/// Carries out a call, unless it was made to fail.
template <class Operation>
int carryOut(Call call, Operation operation) {
    return withoutExceptions([&] {
        const auto failure = Modem::getInstance().takeCallFailure(call);
        return failure ? *failure : operation(Modem::getInstance());
    });
}

int decode(const void* buf, unsigned length, void* out) {
    wds_profile_changed_ind_msg_v01 message;
    const std::span bytes(static_cast<const std::byte*>(buf), length);
    if (!kiv::emulator::decodeChange(bytes, message)) {
        return RAV_CLIENT_ERR_MALFORMED;
    }
    std::memcpy(out, &message, sizeof(message));
    return RAV_CLIENT_OK;
}

}  // namespace

KIV_EMULATOR_API rav_service_object_type
wds_get_service_object_internal_v01(int32_t major, int32_t minor, int32_t library_version) {
    const bool isSupplied = major == kDataService.major && minor == kDataService.minor &&
                            library_version == kDataService.libraryVersion;
    const auto failure = Modem::getInstance().takeCallFailure(Call::GetServiceObject);
    return isSupplied && !failure ? &kDataService : nullptr;
}

KIV_EMULATOR_API int rav_client_notifier_init(rav_service_object_type service,
                                              rav_client_os_params* os_params,
                                              rav_client_type* notifier) {
    if (!isService(service) || !os_params || !notifier) {
        return RAV_CLIENT_ERR_INVALID;
    }
    return carryOut(Call::NotifierInit,
                    [&](Modem& modem) { return modem.openNotifier(service, notifier); });
}

KIV_EMULATOR_API int rav_client_register_notify_cb(rav_client_type notifier,
                                                   rav_client_notify_cb cb, void* user_data) {
    if (!cb) {
        return RAV_CLIENT_ERR_INVALID;
    }
    return carryOut(Call::RegisterNotifyCb,
                    [&](Modem& modem) { return modem.setNotifyCallback(notifier, cb, user_data); });
}

KIV_EMULATOR_API int rav_client_get_any_service(rav_service_object_type service,
                                                rav_service_info* info) {
    if (!isService(service) || !info) {
        return RAV_CLIENT_ERR_INVALID;
    }
    return carryOut(Call::GetAnyService, [&](Modem& modem) { return modem.findService(info); });
}

/// A client without an indication callback gets no indications.
KIV_EMULATOR_API int rav_client_init(const rav_service_info* info, rav_service_object_type service,
                                     rav_client_ind_cb ind_cb, void* ind_cb_data,
                                     rav_client_os_params* os_params, rav_client_type* client) {
    if (!info || !isService(service) || !os_params || !client) {
        return RAV_CLIENT_ERR_INVALID;
    }
    return carryOut(Call::ClientInit, [&](Modem& modem) {
        return modem.openClient(*info, ind_cb, ind_cb_data, client);
    });
}

KIV_EMULATOR_API int rav_client_register_error_cb(rav_client_type client, rav_client_error_cb cb,
                                                  void* user_data) {
    if (!cb) {
        return RAV_CLIENT_ERR_INVALID;
    }
    return carryOut(Call::RegisterErrorCb,
                    [&](Modem& modem) { return modem.setErrorCallback(client, cb, user_data); });
}

KIV_EMULATOR_API int rav_client_send_msg_sync(rav_client_type client, unsigned int msg_id,
                                              const void* req, unsigned int req_len, void* resp,
                                              unsigned int resp_len, unsigned int timeout_ms) {
    const auto* const message = kiv::emulator::findMessage(msg_id);
    if (!message || !req || !resp || !Modem::getInstance().isOpenClient(client)) {
        return RAV_CLIENT_ERR_INVALID;
    }
    if (req_len != message->requestLength || resp_len != message->responseLength) {
        return RAV_CLIENT_ERR_MALFORMED;
    }
    return withoutExceptions([&] {
        const auto* const first = static_cast<const std::byte*>(req);
        return Modem::getInstance().sendRequest(client, msg_id, {first, first + req_len}, resp,
                                                std::chrono::milliseconds(timeout_ms));
    });
}

KIV_EMULATOR_API int rav_client_message_decode(rav_client_type /*client*/, int message_kind,
                                               unsigned int msg_id, const void* buf,
                                               unsigned int buf_len, void* out,
                                               unsigned int out_len) {
    if (message_kind != RAV_MESSAGE_INDICATION || msg_id != RAV_WDS_PROFILE_CHANGED_IND_V01 ||
        !buf || !out) {
        return RAV_CLIENT_ERR_INVALID;
    }
    if (out_len != sizeof(wds_profile_changed_ind_msg_v01)) {
        return RAV_CLIENT_ERR_MALFORMED;
    }
    return carryOut(Call::MessageDecode, [&](const Modem&) { return decode(buf, buf_len, out); });
}

KIV_EMULATOR_API int rav_client_release(rav_client_type client) {
    return withoutExceptions([&] { return Modem::getInstance().release(client); });
}
