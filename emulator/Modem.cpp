#include "Modem.h"

#include <algorithm>
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
        postNotification(notifier, *client, RAV_CLIENT_SERVICE_APPEARED);
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
    if (client->isGone) {
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
        if (clients.erase(handle) == 0) {
            return RAV_CLIENT_ERR_INVALID;
        }
        abandonRequests(handle, RAV_CLIENT_ERR_INVALID);
    }
    // Nothing is posted for a client that is no longer in the table.
    callbackThread.cancel(handle);
    return RAV_CLIENT_OK;
}

void Modem::start() {
    std::lock_guard lock(mutex);
    if (running) {
        return;
    }
    running = true;
    ++instance;
    for (const auto& [handle, client] : clients) {
        postNotification(handle, client, RAV_CLIENT_SERVICE_APPEARED);
    }
}

void Modem::stop() {
    std::lock_guard lock(mutex);
    if (!running) {
        return;
    }
    running = false;
    service.dropTransientProfiles();
    abandonRequests(nullptr, RAV_CLIENT_ERR_SERVICE_GONE);
    for (auto& [handle, client] : clients) {
        if (client.isNotifier) {
            postNotification(handle, client, RAV_CLIENT_SERVICE_DISAPPEARED);
        } else if (!client.isGone) {
            client.isGone = true;
            client.session = {};
            postError(handle, client);
        }
    }
}

bool Modem::isRunning() const {
    std::lock_guard lock(mutex);
    return running;
}

bool Modem::restore(const ProfileTables& tables) {
    std::lock_guard lock(mutex);
    if (running) {
        return false;
    }
    service.restore(tables);
    service.dropTransientProfiles();
    return true;
}

void Modem::sendChange(const wds_profile_changed_ind_type_v01& change) {
    std::lock_guard lock(mutex);
    deliverChange(change);
}

void Modem::sendIndication(unsigned messageId, const std::vector<std::byte>& bytes) {
    std::lock_guard lock(mutex);
    for (const auto& [handle, client] : clients) {
        if (client.session.reportsChanges) {
            postIndication(handle, client, messageId, bytes);
        }
    }
}

bool Modem::waitForRegisteredClient(TimePoint deadline) const {
    std::unique_lock lock(mutex);
    return sessionChanged.wait_until(lock, deadline, [this] {
        return std::any_of(clients.begin(), clients.end(),
                           [](const auto& entry) { return entry.second.session.isComplete(); });
    });
}

bool Modem::waitForDeliveries(TimePoint deadline) {
    // An observer is itself a task of the modem thread.
    if (!modemThread.isCurrentThread() && !modemThread.waitForDue(deadline)) {
        return false;
    }
    return callbackThread.waitForDue(deadline);
}

bool Modem::useVirtualClock(bool on) {
    std::lock_guard lock(mutex);
    if (running || !open.empty()) {
        return false;
    }
    std::lock_guard clockLock(clock.mutex);
    clock.useVirtual(on);
    return true;
}

std::chrono::milliseconds Modem::passTime(std::chrono::milliseconds atMost) {
    if (!clock.isVirtual() || modemThread.isCurrentThread() || callbackThread.isCurrentThread()) {
        return std::chrono::milliseconds(0);
    }
    std::unique_lock lock(clock.mutex);
    const TimePoint limit = clock.now() + sensible(atMost);
    clock.pass(lock, limit);
    const auto left = limit - clock.now();
    return std::max(std::chrono::milliseconds(0),
                    std::chrono::duration_cast<std::chrono::milliseconds>(left));
}

size_t Modem::openClients() const {
    std::lock_guard lock(mutex);
    return clients.size();
}

rav_client_type Modem::addClient(const Client& client) {
    // A handle is a number that is never used again, so that a stale one is always found out.
    constexpr uintptr_t kStep = 16;
    lastHandle += kStep;
    const auto handle = reinterpret_cast<rav_client_type>(lastHandle);
    clients.emplace(handle, client);
    return handle;
}

Modem::Client* Modem::findClient(rav_client_type handle, bool isNotifier) {
    const auto found = clients.find(handle);
    return found != clients.end() && found->second.isNotifier == isNotifier ? &found->second
                                                                            : nullptr;
}

void Modem::postNotification(rav_client_type handle, const Client& client,
                             rav_client_notify_event_type event) {
    if (client.notify) {
        callbackThread.post([handle, event, notify = client.notify, object = client.serviceObject,
                             data = client.userData] { notify(handle, object, event, data); },
                            {}, handle);
    }
}

void Modem::postError(rav_client_type handle, const Client& client) {
    if (client.error) {
        callbackThread.post(
            [handle, error = client.error, data = client.userData] {
                error(handle, RAV_CLIENT_ERR_SERVICE_GONE, data);
            },
            {}, handle);
    }
}

void Modem::postIndication(rav_client_type handle, const Client& client, unsigned messageId,
                           const std::vector<std::byte>& bytes) {
    if (client.indicate) {
        callbackThread.post(
            [handle, messageId, copy = bytes, indicate = client.indicate,
             data = client.indicationData]() mutable {
                indicate(handle, messageId, copy.data(), static_cast<unsigned>(copy.size()), data);
            },
            {}, handle);
    }
}

void Modem::reportChanges() {
    for (const auto& change : service.takeChanges()) {
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
