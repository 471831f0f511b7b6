#include "Modem.h"

#include <utility>

#include "Encoding.h"

namespace kiv::emulator {

Modem& Modem::getInstance() {
    static Modem& modem = *new Modem;
    return modem;
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
    service.dropTransientProfiles();
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

template <class Note, class Call>
void Modem::postCallback(rav_client_type handle, Note note, Call call) {
    callbackThread.post(
        [=, this]() mutable {
            ++callbackCount;
            if (journal.isOpen()) {
                std::lock_guard lock(mutex);
                note();
            }
            call();
        },
        {}, callbacksOf(handle));
}

void Modem::postNotification(rav_client_type handle, const Client& client, bool hasAppeared) {
    if (client.notify) {
        const auto event =
            hasAppeared ? RAV_CLIENT_SERVICE_APPEARED : RAV_CLIENT_SERVICE_DISAPPEARED;
        postCallback(
            handle,
            [this, hasAppeared, number = client.number] {
                journal.addEvent(kNotify, number, hasAppeared ? "appeared" : "disappeared");
            },
            [handle, event, notify = client.notify, object = client.serviceObject,
             data = client.userData] { notify(handle, object, event, data); });
    }
}

void Modem::postError(rav_client_type handle, const Client& client) {
    if (client.error) {
        postCallback(
            handle,
            [this, number = client.number] { journal.addEvent(kError, number, "service gone"); },
            [handle, error = client.error, data = client.userData] {
                error(handle, RAV_CLIENT_ERR_SERVICE_GONE, data);
            });
    }
}

void Modem::postIndication(rav_client_type handle, const Client& client, unsigned messageId,
                           const std::vector<std::byte>& bytes) {
    if (client.indicate) {
        postCallback(
            handle,
            [=, this, number = client.number] { journal.addIndication(number, messageId, bytes); },
            [=, copy = bytes, indicate = client.indicate, data = client.indicationData]() mutable {
                indicate(handle, messageId, copy.data(), static_cast<unsigned>(copy.size()), data);
            });
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
