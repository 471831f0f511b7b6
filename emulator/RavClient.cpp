// The C interface of the messaging client. It checks its arguments, and lets no exception through
// to callers that may not know of any.

#include "rav_client.h"

#include <cstring>
#include <exception>
#include <span>

#include "Encoding.h"
#include "Modem.h"

struct rav_service_object {
    int32_t major;
    int32_t minor;
    int32_t libraryVersion;
};

namespace {

using kiv::emulator::Modem;
using Call = kiv::emulator::ModemEmulator::Call;
using Service = Modem::Client::Service;

constexpr rav_service_object kDataService{
    WDS_SERVICE_MAJOR_VERSION_V01, WDS_SERVICE_MINOR_VERSION_V01, WDS_SERVICE_LIBRARY_VERSION_V01};

bool isService(rav_service_object_type service) { return service == &kDataService; }

template <class Operation>
int withoutExceptions(Operation operation) {
    try {
        return operation(Modem::getInstance());
    } catch (const std::exception&) {
        // Out of memory or of threads.
        return RAV_CLIENT_ERR_NO_MEMORY;
    }
}

/// Carries out a call with the modem's mutex held, unless it was made to fail.
template <class Operation>
int carryOut(Call call, Operation operation) {
    return withoutExceptions([&](Modem& modem) -> int {
        std::lock_guard lock(modem.mutex);
        const auto failure = modem.callFailures.extract(call);
        return failure ? failure.mapped() : operation(modem);
    });
}

}  // namespace

KIV_EMULATOR_API rav_service_object_type
wds_get_service_object_internal_v01(int32_t major, int32_t minor, int32_t library_version) {
    bool isSupplied = false;
    carryOut(Call::GetServiceObject, [&](Modem&) {
        isSupplied = major == kDataService.major && minor == kDataService.minor &&
                     library_version == kDataService.libraryVersion;
        return RAV_CLIENT_OK;
    });
    return isSupplied ? &kDataService : nullptr;
}

KIV_EMULATOR_API int rav_client_notifier_init(rav_service_object_type service,
                                              rav_client_os_params* os_params,
                                              rav_client_type* notifier) {
    if (!isService(service) || !os_params || !notifier) {
        return RAV_CLIENT_ERR_INVALID;
    }
    return carryOut(Call::NotifierInit, [&](Modem& modem) {
        *notifier = modem.addClient({.isNotifier = true, .serviceObject = service});
        return RAV_CLIENT_OK;
    });
}

KIV_EMULATOR_API int rav_client_register_notify_cb(rav_client_type notifier,
                                                   rav_client_notify_cb cb, void* user_data) {
    return carryOut(Call::RegisterNotifyCb, [&](Modem& modem) {
        auto* const client = modem.findClient(notifier, true);
        if (!client || !cb) {
            return RAV_CLIENT_ERR_INVALID;
        }
        client->notify = cb;
        client->userData = user_data;
        if (modem.running) {
            modem.postNotification(notifier, *client, true);
        }
        return RAV_CLIENT_OK;
    });
}

KIV_EMULATOR_API int rav_client_get_any_service(rav_service_object_type service,
                                                rav_service_info* info) {
    if (!isService(service) || !info) {
        return RAV_CLIENT_ERR_INVALID;
    }
    return carryOut(Call::GetAnyService, [&](const Modem& modem) {
        if (!modem.running) {
            return RAV_CLIENT_ERR_NO_SERVICE;
        }
        *info = {1, 1, modem.instance, 0};
        return RAV_CLIENT_OK;
    });
}

/// A client without an indication callback gets no indications.
KIV_EMULATOR_API int rav_client_init(const rav_service_info* info, rav_service_object_type service,
                                     rav_client_ind_cb ind_cb, void* ind_cb_data,
                                     rav_client_os_params* os_params, rav_client_type* client) {
    if (!info || !isService(service) || !os_params || !client) {
        return RAV_CLIENT_ERR_INVALID;
    }
    return carryOut(Call::ClientInit, [&](Modem& modem) {
        if (!modem.running || info->instance != modem.instance) {
            return RAV_CLIENT_ERR_NO_SERVICE;
        }
        *client = modem.addClient({.indicate = ind_cb, .indicationData = ind_cb_data});
        return RAV_CLIENT_OK;
    });
}

KIV_EMULATOR_API int rav_client_register_error_cb(rav_client_type client, rav_client_error_cb cb,
                                                  void* user_data) {
    return carryOut(Call::RegisterErrorCb, [&](Modem& modem) {
        auto* const found = modem.findClient(client, false);
        if (!found || !cb) {
            return RAV_CLIENT_ERR_INVALID;
        }
        found->error = cb;
        found->userData = user_data;
        if (found->state == Service::Gone) {
            modem.postError(client, *found);
        }
        return RAV_CLIENT_OK;
    });
}

KIV_EMULATOR_API int rav_client_send_msg_sync(rav_client_type client, unsigned int msg_id,
                                              const void* req, unsigned int req_len, void* resp,
                                              unsigned int resp_len, unsigned int timeout_ms) {
    const auto* const message = kiv::emulator::findMessage(msg_id);
    if (!message || !req || !resp) {
        return RAV_CLIENT_ERR_INVALID;
    }
    return withoutExceptions([&](Modem& modem) {
        return modem.sendRequest(client, *message, {static_cast<const std::byte*>(req), req_len},
                                 {static_cast<std::byte*>(resp), resp_len},
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
    return carryOut(Call::MessageDecode, [&](const Modem&) {
        wds_profile_changed_ind_msg_v01 message;
        const std::span bytes(static_cast<const std::byte*>(buf), buf_len);
        if (!kiv::emulator::decodeChange(bytes, message)) {
            return RAV_CLIENT_ERR_MALFORMED;
        }
        std::memcpy(out, &message, sizeof(message));
        return RAV_CLIENT_OK;
    });
}

/// Waits for the running callback of the client. Within a callback it does not: that callback is
/// then the client's last.
KIV_EMULATOR_API int rav_client_release(rav_client_type client) {
    return withoutExceptions([&](Modem& modem) {
        {
            std::lock_guard lock(modem.mutex);
            // Not in the journal: a client may be released beside anything else that is.
            if (modem.clients.erase(client) == 0) {
                return RAV_CLIENT_ERR_INVALID;
            }
            modem.abandonRequests(client, RAV_CLIENT_ERR_INVALID);
        }
        // Nothing is posted for a client that is no longer in the table.
        modem.callbackThread.cancel(Modem::callbacksOf(client));
        return RAV_CLIENT_OK;
    });
}
