#include "ModemEmulator.h"

#include <algorithm>
#include <utility>

#include "Encoding.h"
#include "Modem.h"
#include "StateFile.h"

namespace kiv::emulator {

ModemEmulator::ModemEmulator() : modem(Modem::getInstance()) {}

ModemEmulator& ModemEmulator::getInstance() {
    static ModemEmulator& emulator = *new ModemEmulator;
    return emulator;
}

void ModemEmulator::start() {
    std::lock_guard lock(modem.mutex);
    modem.startAsTold();
}

void ModemEmulator::stop() {
    std::lock_guard lock(modem.mutex);
    modem.stopAsTold();
}

void ModemEmulator::restart() {
    // In one go, so that what clients are told always comes after both.
    std::lock_guard lock(modem.mutex);
    modem.stopAsTold();
    modem.startAsTold();
}

bool ModemEmulator::isRunning() const {
    std::lock_guard lock(modem.mutex);
    return modem.running;
}

bool ModemEmulator::useVirtualClock(bool on) {
    std::lock_guard lock(modem.mutex);
    const bool isBusy =
        std::any_of(modem.inProgress.begin(), modem.inProgress.end(),
                    [](const auto& request) { return request->state < Modem::State::Decided; });
    if (modem.running || isBusy) {
        return false;
    }
    modem.threads.useVirtual(on);
    return true;
}

std::chrono::milliseconds ModemEmulator::now() const {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
        modem.threads.now().time_since_epoch());
}

void ModemEmulator::passTime(std::chrono::milliseconds atMost) {
    if (modem.threads.isCurrent(Thread::Modem) || modem.threads.isCurrent(Thread::Callback)) {
        return;
    }
    {
        std::lock_guard lock(modem.mutex);
        if (!modem.heldIndications.empty() || !modem.heldActions.empty()) {
            // Clients have to see to what they were told before anything else happens.
            atMost = {};
        }
        modem.deliverHeld();
        for (const Action& action : std::exchange(modem.heldActions, {})) {
            modem.perform(action);
        }
    }
    if (modem.threads.isVirtual()) {
        modem.threads.pass(atMost);
    }
}

void ModemEmulator::factoryReset() {
    std::shared_ptr<const Hook> former;  // destroyed outside the lock
    std::unique_lock lock(modem.mutex);
    modem.service.reset();
    modem.endScenario();
    modem.faults = {};
    modem.callFailures.clear();
    modem.log.clear();
    modem.sentBeforeReset = modem.sentCount;
    modem.hook.swap(former);
    modem.waitForHook(lock);
}

void ModemEmulator::installFactoryProfiles() {
    std::lock_guard lock(modem.mutex);
    modem.service.installFactoryProfiles();
}

bool ModemEmulator::saveState(const std::string& path, std::string& error) const {
    std::unique_lock lock(modem.mutex);
    const ProfileTables tables = modem.service.tables;
    lock.unlock();
    try {
        writeStateFile(path, tables);
        return true;
    } catch (const StateFileError& failure) {
        error = failure.what();
        return false;
    }
}

bool ModemEmulator::loadState(const std::string& path, std::string& error) {
    try {
        const ProfileTables read = readStateFile(path);
        std::lock_guard lock(modem.mutex);
        if (!modem.running) {
            modem.service.tables = read;
            modem.service.dropTransientProfiles();
            return true;
        }
        error = path + ": not loaded, the modem is on";
    } catch (const StateFileError& failure) {
        error = failure.what();
    }
    return false;
}

bool ModemEmulator::setCapacity(wds_profile_type_enum_v01 type, unsigned capacity) {
    std::lock_guard lock(modem.mutex);
    ProfileTable* const table = modem.service.tables.find(type);
    return table && table->setCapacity(capacity);
}

std::vector<Profile> ModemEmulator::profiles(wds_profile_type_enum_v01 type) const {
    std::lock_guard lock(modem.mutex);
    std::vector<Profile> found;
    if (const ProfileTable* const table = modem.service.tables.find(type)) {
        for (const auto& [index, profile] : table->all()) {
            found.push_back(profile);
        }
    }
    return found;
}

std::optional<Profile> ModemEmulator::profile(wds_profile_type_enum_v01 type, uint8_t index) const {
    std::lock_guard lock(modem.mutex);
    const Profile* const found = modem.service.tables.find(type, index);
    return found ? std::optional(*found) : std::nullopt;
}

std::optional<uint8_t> ModemEmulator::createProfile(wds_profile_type_enum_v01 type,
                                                    const wds_profile_settings_type_v01& settings,
                                                    bool persistent) {
    std::lock_guard lock(modem.mutex);
    uint8_t index = 0;
    const bool isCreated =
        modem.service.createProfile(type, settings, persistent, index) == WDS_ERR_NONE_V01;
    modem.reportChanges();
    return isCreated ? std::optional(index) : std::nullopt;
}

bool ModemEmulator::modifyProfile(wds_profile_type_enum_v01 type, uint8_t index,
                                  const wds_profile_settings_type_v01& settings) {
    std::lock_guard lock(modem.mutex);
    const uint32_t error = modem.service.modifyProfile(type, index, settings);
    modem.reportChanges();
    return error == WDS_ERR_NONE_V01;
}

bool ModemEmulator::deleteProfile(wds_profile_type_enum_v01 type, uint8_t index) {
    std::lock_guard lock(modem.mutex);
    const uint32_t error = modem.service.deleteProfile(type, index);
    modem.reportChanges();
    return error == WDS_ERR_NONE_V01;
}

void ModemEmulator::sendProfileChanged(const wds_profile_changed_ind_type_v01& change) {
    std::lock_guard lock(modem.mutex);
    modem.deliverChange(change);
}

void ModemEmulator::sendIndication(unsigned messageId, const std::vector<std::byte>& bytes) {
    std::lock_guard lock(modem.mutex);
    modem.deliverBytes(messageId, bytes);
}

std::vector<std::byte> ModemEmulator::encodeProfileChanged(
    const wds_profile_changed_ind_type_v01& change) {
    return encodeChange(change);
}

void ModemEmulator::addFault(Fault fault) {
    std::lock_guard lock(modem.mutex);
    modem.faults.add(std::move(fault));
}

void ModemEmulator::play(const Scenario& scenario) {
    std::lock_guard lock(modem.mutex);
    modem.faults.seed(scenario.seed);
    for (const Fault& fault : scenario.faults) {
        modem.faults.add(fault);
    }
    modem.isStartDelayed = scenario.startsAfter || scenario.neverStarts;
    modem.startDelay = scenario.neverStarts ? std::nullopt : scenario.startsAfter;
    ProfileTables& tables = modem.service.tables;
    tables.table3gpp.setCapacity(scenario.capacity3gpp.value_or(tables.table3gpp.getCapacity()));
    tables.table3gpp2.setCapacity(scenario.capacity3gpp2.value_or(tables.table3gpp2.getCapacity()));
    for (const TimedAction& event : scenario.events) {
        modem.performLater(event.action, event.at, TaskName::Kind::Event);
    }
}

void ModemEmulator::perform(const Action& action) {
    std::lock_guard lock(modem.mutex);
    modem.perform(action);
}

void ModemEmulator::clearFaults() {
    std::lock_guard lock(modem.mutex);
    modem.faults = {};
    modem.callFailures.clear();
}

void ModemEmulator::failNextCall(Call call, int result) {
    std::lock_guard lock(modem.mutex);
    modem.callFailures[call] = result;
}

std::vector<Request> ModemEmulator::requests() const {
    std::lock_guard lock(modem.mutex);
    std::vector<Request> records;
    records.reserve(modem.log.size());
    for (const auto& request : modem.log) {
        records.push_back(request->record);
    }
    return records;
}

void ModemEmulator::setHook(Hook hook) {
    auto former = hook ? std::make_shared<const Hook>(std::move(hook)) : nullptr;
    std::unique_lock lock(modem.mutex);
    modem.hook.swap(former);
    modem.waitForHook(lock);
}

bool ModemEmulator::startJournal(const std::string& path, bool showSecrets) {
    std::lock_guard lock(modem.mutex);
    if (modem.clients.empty()) {
        modem.clientCount = 0;
    }
    return modem.journal.open(path, showSecrets);
}

void ModemEmulator::markJournal(const std::string& what) {
    std::lock_guard lock(modem.mutex);
    modem.journal.addEvent("program", 0, what);
}

bool ModemEmulator::finishJournal() {
    std::lock_guard lock(modem.mutex);
    return modem.journal.close();
}

bool ModemEmulator::waitForRegisteredClient(std::chrono::milliseconds timeout) const {
    std::unique_lock lock(modem.mutex);
    return modem.sessionChanged.wait_until(lock, realTimeAfter(timeout), [this] {
        return std::any_of(modem.clients.begin(), modem.clients.end(),
                           [](const auto& entry) { return entry.second.session.isComplete(); });
    });
}

bool ModemEmulator::waitForDeliveries(std::chrono::milliseconds timeout) const {
    const TimePoint deadline = realTimeAfter(timeout);
    // A callback can't wait for itself, and the hook is itself a task of the modem thread.
    if (modem.threads.isCurrent(Thread::Callback) || modem.threads.isCurrent(Thread::Modem)) {
        return modem.threads.waitForDue(Thread::Callback, deadline);
    }
    // An answer waits for callbacks, and callbacks for what follows it.
    for (int round = 0; round < (modem.threads.isVirtual() ? 2 : 1); ++round) {
        if (!modem.threads.waitForDue(Thread::Modem, deadline) || !modem.waitForFinish(deadline) ||
            !modem.threads.waitForDue(Thread::Callback, deadline)) {
            return false;
        }
    }
    return true;
}

uint64_t ModemEmulator::callbacksSoFar() const { return modem.callbackCount; }

size_t ModemEmulator::openClients() const {
    std::lock_guard lock(modem.mutex);
    return modem.clients.size();
}

}  // namespace kiv::emulator
