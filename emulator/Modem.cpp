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
        // Not in the journal: a client may be released beside anything else that is.
        if (clients.erase(handle) == 0) {
            return RAV_CLIENT_ERR_INVALID;
        }
        abandonRequests(handle, RAV_CLIENT_ERR_INVALID);
    }
    // Nothing is posted for a client that is no longer in the table.
    callbackThread.cancel(handle);
    return RAV_CLIENT_OK;
}

void Modem::startNow() {
    modemThread.forget(&startDelay);
    if (running) {
        return;
    }
    running = true;
    ++instance;
    noteEvent(kServiceUp);
    for (auto& [handle, client] : clients) {
        const bool wasDeaf = std::exchange(client.isDeaf, false);
        client.isGone = client.isGone || wasDeaf;
        if (wasDeaf) {
            abandonRequests(handle, RAV_CLIENT_ERR_SERVICE_GONE);
            postError(handle, client);
        }
        postNotification(handle, client, RAV_CLIENT_SERVICE_APPEARED);
    }
}

void Modem::stopNow(bool silently) {
    modemThread.forget(&startDelay);
    if (!running) {
        return;
    }
    running = false;
    noteEvent(silently ? kServiceDownSilently : kServiceDown);
    service.dropTransientProfiles();
    if (!silently) {
        abandonRequests(nullptr, RAV_CLIENT_ERR_SERVICE_GONE);
    }
    for (auto& [handle, client] : clients) {
        client.session = {};
        const bool losesService = !client.isNotifier && !client.isGone;
        client.isDeaf = client.isDeaf || (silently && losesService);
        client.isGone = client.isGone || (!silently && losesService);
        if (silently) {
            continue;
        }
        if (client.isNotifier) {
            postNotification(handle, client, RAV_CLIENT_SERVICE_DISAPPEARED);
        } else if (losesService) {
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
    deliverBytes(messageId, bytes);
}

bool Modem::waitForRegisteredClient(TimePoint deadline) const {
    std::unique_lock lock(mutex);
    return sessionChanged.wait_until(lock, deadline, [this] {
        return std::any_of(clients.begin(), clients.end(),
                           [](const auto& entry) { return entry.second.session.isComplete(); });
    });
}

bool Modem::waitForDeliveries(TimePoint deadline) {
    // A callback can't wait for itself, and an observer is itself a task of the modem thread.
    if (callbackThread.isCurrentThread() || modemThread.isCurrentThread()) {
        return !callbackThread.isCurrentThread() && callbackThread.waitForDue(deadline);
    }
    // An answer waits for callbacks, and callbacks for what follows it.
    for (int round = 0; round < (clock.isVirtual() ? 2 : 1); ++round) {
        if (!modemThread.waitForDue(deadline) || !waitForObservers(deadline) ||
            !callbackThread.waitForDue(deadline)) {
            return false;
        }
    }
    return true;
}

/// What has been decided by now, however often callbacks put it off.
bool Modem::waitForObservers(TimePoint deadline) {
    std::unique_lock lock(mutex);
    return finished.wait_until(lock, deadline, [this, awaited = finishing] {
        return std::none_of(awaited.begin(), awaited.end(), [this](const auto& transaction) {
            return std::find(finishing.begin(), finishing.end(), transaction) != finishing.end();
        });
    });
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

void Modem::passTime(std::chrono::milliseconds atMost) {
    if (modemThread.isCurrentThread() || callbackThread.isCurrentThread()) {
        return;
    }
    const bool hasDelivered = deliverHeldAndIdle();
    if (!clock.isVirtual()) {
        return;
    }
    std::unique_lock lock(clock.mutex);
    // Clients have to see to what they were told before anything else happens.
    const auto span = hasDelivered ? std::chrono::milliseconds(0) : sensible(atMost);
    clock.pass(lock, clock.now() + span);
}

TimePoint Modem::now() const {
    std::lock_guard lock(clock.mutex);
    return clock.now();
}

bool Modem::startJournal(const std::string& path, bool showSecrets) {
    std::lock_guard lock(mutex);
    if (clients.empty()) {
        clientCount = 0;
    }
    return journal.open(path, showSecrets, now());
}

void Modem::markJournal(const std::string& what) {
    std::lock_guard lock(mutex);
    if (journal.isOpen()) {
        journal.addEvent(now(), kProgram, 0, what);
    }
}

bool Modem::finishJournal() {
    std::lock_guard lock(mutex);
    return journal.close();
}

void Modem::noteEvent(const std::string& what) {
    if (journal.isOpen()) {
        journal.addEvent(now(), kEvent, 0, what);
    }
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
    clients.emplace(handle, client).first->second.number = ++clientCount;
    if (journal.isOpen()) {
        journal.addEvent(now(), kOpen, clientCount, client.what());
    }
    return handle;
}

Modem::Client* Modem::findClient(rav_client_type handle, bool isNotifier) {
    const auto found = clients.find(handle);
    return found != clients.end() && found->second.isNotifier == isNotifier ? &found->second
                                                                            : nullptr;
}

template <class Note>
void Modem::noteCallback(Note note) {
    ++callbackCount;
    if (journal.isOpen()) {
        std::lock_guard lock(mutex);
        note();
    }
}

void Modem::postNotification(rav_client_type handle, const Client& client,
                             rav_client_notify_event_type event) {
    if (client.notify) {
        callbackThread.post(
            [this, handle, event, number = client.number, notify = client.notify,
             object = client.serviceObject, data = client.userData] {
                noteCallback([&] {
                    const bool isUp = event == RAV_CLIENT_SERVICE_APPEARED;
                    journal.addEvent(now(), kNotify, number, isUp ? kAppeared : kDisappeared);
                });
                notify(handle, object, event, data);
            },
            {}, handle);
    }
}

void Modem::postError(rav_client_type handle, const Client& client) {
    if (client.error) {
        callbackThread.post(
            [this, handle, number = client.number, error = client.error, data = client.userData] {
                noteCallback([&] { journal.addEvent(now(), kError, number, "service gone"); });
                error(handle, RAV_CLIENT_ERR_SERVICE_GONE, data);
            },
            {}, handle);
    }
}

void Modem::postIndication(rav_client_type handle, const Client& client, unsigned messageId,
                           const std::vector<std::byte>& bytes) {
    if (client.indicate) {
        callbackThread.post(
            [this, handle, messageId, number = client.number, copy = bytes,
             indicate = client.indicate, data = client.indicationData]() mutable {
                noteCallback([&] { journal.addIndication(now(), number, messageId, copy); });
                indicate(handle, messageId, copy.data(), static_cast<unsigned>(copy.size()), data);
            },
            {}, handle);
    }
}

void Modem::reportChanges() {
    static constexpr const char* kChanges[] = {"", " created", " deleted", " modified"};
    for (const auto& change : service.takeChanges()) {
        const char* const type =
            change.profile_type == WDS_PROFILE_TYPE_3GPP_V01 ? "3gpp " : "3gpp2 ";
        noteEvent(type + std::to_string(change.profile_index) + kChanges[change.change]);
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
