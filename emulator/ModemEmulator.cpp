#include "ModemEmulator.h"

#include <utility>

#include "DiagLog.h"
#include "Encoding.h"
#include "Modem.h"
#include "StateFile.h"

namespace kiv::emulator {
namespace {

Modem& modem() { return Modem::getInstance(); }

}  // namespace

ModemEmulator::ModemEmulator() = default;

ModemEmulator& ModemEmulator::getInstance() {
    static ModemEmulator& emulator = *new ModemEmulator;
    return emulator;
}

void ModemEmulator::start() { modem().start(); }

void ModemEmulator::stop() { modem().stop(); }

void ModemEmulator::restart() { Modem::getInstance().restart(); }

bool ModemEmulator::useVirtualClock(bool on) { return modem().useVirtualClock(on); }

std::chrono::milliseconds ModemEmulator::now() const {
    return std::chrono::duration_cast<std::chrono::milliseconds>(modem().now().time_since_epoch());
}

void ModemEmulator::passTime(std::chrono::milliseconds atMost) { modem().passTime(atMost); }

bool ModemEmulator::isRunning() const { return modem().isRunning(); }

void ModemEmulator::factoryReset() { modem().reset(); }

void ModemEmulator::installFactoryProfiles() {
    modem().withService([](WdsService& service) {
        service.installFactoryProfiles();
        return true;
    });
}

bool ModemEmulator::saveState(const std::string& path, std::string& error) const {
    const auto tables =
        modem().withService([](const WdsService& service) { return service.tables(); });
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
        if (modem().restore(readStateFile(path))) {
            return true;
        }
        error = path + ": not loaded, the modem is on";
    } catch (const StateFileError& failure) {
        error = failure.what();
    }
    return false;
}

bool ModemEmulator::setCapacity(wds_profile_type_enum_v01 type, unsigned capacity) {
    return modem().withService([&](WdsService& service) {
        ProfileTable* const table = service.findTable(type);
        return table && table->setCapacity(capacity);
    });
}

std::vector<Profile> ModemEmulator::profiles(wds_profile_type_enum_v01 type) const {
    return modem().withService([&](WdsService& service) {
        std::vector<Profile> found;
        if (const ProfileTable* const table = service.findTable(type)) {
            for (const auto& [index, profile] : table->all()) {
                found.push_back(profile);
            }
        }
        return found;
    });
}

std::optional<Profile> ModemEmulator::profile(wds_profile_type_enum_v01 type, uint8_t index) const {
    return modem().withService([&](WdsService& service) {
        const Profile* const found = service.findProfile(type, index);
        return found ? std::optional(*found) : std::nullopt;
    });
}

std::optional<uint8_t> ModemEmulator::createProfile(wds_profile_type_enum_v01 type,
                                                    const wds_profile_settings_type_v01& settings,
                                                    bool persistent) {
    return modem().withService([&](WdsService& service) {
        uint8_t index = 0;
        const bool isCreated =
            service.createProfile(type, settings, persistent, index) == WDS_ERR_NONE_V01;
        return isCreated ? std::optional(index) : std::nullopt;
    });
}

bool ModemEmulator::modifyProfile(wds_profile_type_enum_v01 type, uint8_t index,
                                  const wds_profile_settings_type_v01& settings) {
    return modem().withService([&](WdsService& service) {
        return service.modifyProfile(type, index, settings) == WDS_ERR_NONE_V01;
    });
}

bool ModemEmulator::deleteProfile(wds_profile_type_enum_v01 type, uint8_t index) {
    return modem().withService([&](WdsService& service) {
        return service.deleteProfile(type, index) == WDS_ERR_NONE_V01;
    });
}

void ModemEmulator::sendProfileChanged(const wds_profile_changed_ind_type_v01& change) {
    modem().sendChange(change);
}

void ModemEmulator::sendIndication(unsigned messageId, const std::vector<std::byte>& bytes) {
    modem().sendIndication(messageId, bytes);
}

std::vector<std::byte> ModemEmulator::encodeProfileChanged(
    const wds_profile_changed_ind_type_v01& change) {
    return encodeChange(change);
}

void ModemEmulator::addFault(Fault fault) { modem().addFault(std::move(fault)); }

void ModemEmulator::play(const Scenario& scenario) { modem().play(scenario); }

void ModemEmulator::perform(const Action& action) { modem().performNow(action); }

void ModemEmulator::clearFaults() { modem().clearFaults(); }

void ModemEmulator::failNextCall(Call call, int result) { modem().failCall(call, result); }

std::vector<Request> ModemEmulator::requests() const { return modem().requests(); }

void ModemEmulator::setRequestObserver(std::function<void(const Request&)> observer) {
    modem().setObserver(std::move(observer));
}

bool ModemEmulator::startJournal(const std::string& path, bool showSecrets) {
    return modem().startJournal(path, showSecrets);
}

void ModemEmulator::markJournal(const std::string& what) { modem().markJournal(what); }

bool ModemEmulator::finishJournal() { return modem().finishJournal(); }

bool ModemEmulator::waitForRegisteredClient(std::chrono::milliseconds timeout) const {
    return modem().waitForRegisteredClient(realTimeAfter(timeout));
}

bool ModemEmulator::waitForDeliveries(std::chrono::milliseconds timeout) const {
    return modem().waitForDeliveries(realTimeAfter(timeout));
}

uint64_t ModemEmulator::callbacksSoFar() const { return modem().callbacksSoFar(); }

size_t ModemEmulator::openClients() const { return modem().openClients(); }

std::vector<ModemEmulator::DiagLine> ModemEmulator::takeDiagLines() {
    return takeDiagnosticLines();
}

int ModemEmulator::diagUsers() const { return countDiagnosticUsers(); }

}  // namespace kiv::emulator
