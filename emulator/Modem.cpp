#include "Modem.h"

#include <utility>

#include "Encoding.h"

namespace kiv::emulator {

Modem& Modem::getInstance() {
    static Modem& modem = *new Modem;
    return modem;
}

int Modem::openNotifier(rav_service_object_type serviceObject, rav_client_type* notifier) {
    std::lock_guard lock(mutex);
    Client client;
    client.isNotifier = true;
    client.serviceObject = serviceObject;
    *notifier = addClient(client);
    return RAV_CLIENT_OK;
}

int Modem::setNotifyCallback(rav_client_type notifier, rav_client_notify_cb callback,
                             void* userData) {
    std::lock_guard lock(mutex);
    Client* const client = findClient(notifier, true);
    if (!client) {
        return RAV_CLIENT_ERR_INVALID;
    }
    client->notify = callback;
    client->userData = userData;
    if (running) {
        postNotification(notifier, *client, true);
    }
    return RAV_CLIENT_OK;
}

int Modem::findService(rav_service_info* info) const {
    std::lock_guard lock(mutex);
    if (!running) {
        return RAV_CLIENT_ERR_NO_SERVICE;
    }
    *info = {1, 1, instance, 0};
    return RAV_CLIENT_OK;
}

int Modem::openClient(const rav_service_info& info, rav_client_ind_cb callback, void* userData,
                      rav_client_type* handle) {
    std::lock_guard lock(mutex);
    if (!running || info.instance != instance) {
        return RAV_CLIENT_ERR_NO_SERVICE;
    }
    Client client;
    client.indicate = callback;
    client.indicationData = userData;
    *handle = addClient(client);
    return RAV_CLIENT_OK;
}

int Modem::setErrorCallback(rav_client_type handle, rav_client_error_cb callback, void* userData) {
    std::lock_guard lock(mutex);
    Client* const client = findClient(handle, false);
    if (!client) {
        return RAV_CLIENT_ERR_INVALID;
    }
    client->error = callback;
    client->userData = userData;
    if (client->state == Client::Service::Gone) {
        postError(handle, *client);
    }
    return RAV_CLIENT_OK;
}

bool Modem::isOpenClient(rav_client_type handle) const {
    std::lock_guard lock(mutex);
    const auto found = clients.find(handle);
    return found != clients.end() && !found->second.isNotifier;
}

int Modem::release(rav_client_type handle) {
    {
        std::lock_guard lock(mutex);
        // Not in the journal: a client may be released beside anything else that is.
        if (clients.erase(handle) == 0) {
            return RAV_CLIENT_ERR_INVALID;
        }
        abandonRequests(handle, RAV_CLIENT_ERR_INVALID);
    }
    // Nothing is posted for a client that is no longer in the table.
    callbackThread.cancel(callbacksOf(handle));
    return RAV_CLIENT_OK;
}

std::optional<int> Modem::takeCallFailure(ModemEmulator::Call call) {
    std::lock_guard lock(mutex);
    const auto failure = callFailures.extract(call);
    return failure ? std::optional(failure.mapped()) : std::nullopt;
}

void Modem::startNow() {
    modemThread.forget({TaskName::Kind::PowerOn});
    if (running) {
        return;
    }
    running = true;
    ++instance;
    journal.addEvent(kEvent, 0, "service up");
    for (auto& [handle, client] : clients) {
        if (client.state == Client::Service::Deaf) {
            client.state = Client::Service::Gone;
            abandonRequests(handle, RAV_CLIENT_ERR_SERVICE_GONE);
            postError(handle, client);
        }
        postNotification(handle, client, true);
    }
}

void Modem::stopNow(bool silently) {
    modemThread.forget({TaskName::Kind::PowerOn});
    if (!running) {
        return;
    }
    running = false;
    journal.addEvent(kEvent, 0, silently ? "service down, silently" : "service down");
    service.tables.dropTransient();
    if (!silently) {
        abandonRequests(nullptr, RAV_CLIENT_ERR_SERVICE_GONE);
    }
    for (auto& [handle, client] : clients) {
        client.session = {};
        const bool losesService = !client.isNotifier && client.state == Client::Service::Served;
        if (losesService) {
            client.state = silently ? Client::Service::Deaf : Client::Service::Gone;
        }
        if (losesService && !silently) {
            postError(handle, client);
        } else if (!silently) {
            postNotification(handle, client, false);
        }
    }
}

rav_client_type Modem::addClient(const Client& client) {
    // A handle is a number that is never used again, so that a stale one is always found out.
    constexpr uintptr_t kStep = 16;
    lastHandle += kStep;
    const auto handle = reinterpret_cast<rav_client_type>(lastHandle);
    clients.emplace(handle, client).first->second.number = ++clientCount;
    journal.addEvent(kOpen, clientCount, client.isNotifier ? "notifier" : "client");
    return handle;
}

Modem::Client* Modem::findClient(rav_client_type handle, bool isNotifier) {
    const auto found = clients.find(handle);
    return found != clients.end() && found->second.isNotifier == isNotifier ? &found->second
                                                                            : nullptr;
}

TaskName Modem::callbacksOf(rav_client_type handle) {
    return {TaskName::Kind::Client, reinterpret_cast<uintptr_t>(handle)};
}

template <class Note>
void Modem::noteCallback(Note note) {
    ++callbackCount;
    if (journal.isOpen()) {
        std::lock_guard lock(mutex);
        note();
    }
}

void Modem::postNotification(rav_client_type handle, const Client& client, bool hasAppeared) {
    if (client.notify) {
        callbackThread.post(
            [this, handle, hasAppeared, number = client.number, notify = client.notify,
             object = client.serviceObject, data = client.userData] {
                noteCallback([&] {
                    journal.addEvent(kNotify, number, hasAppeared ? "appeared" : "disappeared");
                });
                notify(handle, object,
                       hasAppeared ? RAV_CLIENT_SERVICE_APPEARED : RAV_CLIENT_SERVICE_DISAPPEARED,
                       data);
            },
            {}, callbacksOf(handle));
    }
}

void Modem::postError(rav_client_type handle, const Client& client) {
    if (client.error) {
        callbackThread.post(
            [this, handle, number = client.number, error = client.error, data = client.userData] {
                noteCallback([&] { journal.addEvent(kError, number, "service gone"); });
                error(handle, RAV_CLIENT_ERR_SERVICE_GONE, data);
            },
            {}, callbacksOf(handle));
    }
}

void Modem::postIndication(rav_client_type handle, const Client& client, unsigned messageId,
                           const std::vector<std::byte>& bytes) {
    if (client.indicate) {
        callbackThread.post(
            [this, handle, messageId, number = client.number, copy = bytes,
             indicate = client.indicate, data = client.indicationData]() mutable {
                noteCallback([&] { journal.addIndication(number, messageId, copy); });
                indicate(handle, messageId, copy.data(), static_cast<unsigned>(copy.size()), data);
            },
            {}, callbacksOf(handle));
    }
}

void Modem::reportChanges() {
    static constexpr const char* kChanges[] = {"", " created", " deleted", " modified"};
    for (const auto& change : service.takeChanges()) {
        const char* const type =
            change.profile_type == WDS_PROFILE_TYPE_3GPP_V01 ? "3gpp " : "3gpp2 ";
        journal.addEvent(kEvent, 0,
                         type + std::to_string(change.profile_index) + kChanges[change.change]);
        deliverChange(change);
    }
}

void Modem::deliverChange(const wds_profile_changed_ind_type_v01& change) {
    for (const auto& [handle, client] : clients) {
        if (client.session.isReported(change)) {
            postIndication(handle, client, RAV_WDS_PROFILE_CHANGED_IND_V01, encodeChange(change));
        }
    }
}

}  // namespace kiv::emulator
