// The part of the modem that a scenario plays: what happens to it without a request.

#include <algorithm>
#include <utility>

#include "Encoding.h"
#include "Modem.h"

namespace kiv::emulator {
namespace {

constexpr unsigned kUnknownMessage = 0x7FFF;

/// When what is to happen of itself does: never at once, beside what the program does just then.
std::chrono::milliseconds soonest(std::chrono::milliseconds span) {
    return std::max(span, std::chrono::milliseconds(1));
}

}  // namespace

void Modem::start() {
    std::lock_guard lock(mutex);
    startAsPlayed();
}

void Modem::startAsPlayed() {
    noteProgram(kStart);
    if (running || !std::exchange(isStartDelayed, false)) {
        startNow();
    } else if (startDelay) {
        perform({.kind = Action::Kind::PowerOff, .comesBackAfter = startDelay});
    }
}

void Modem::noteProgram(const char* what) {
    if (journal.isOpen()) {
        journal.addEvent(now(), kProgram, 0, what);
    }
}

void Modem::stop() {
    std::lock_guard lock(mutex);
    stopAsTold();
}

void Modem::stopAsTold() {
    noteProgram(kStop);
    stopNow(false);
}

void Modem::restart() {
    // In one go, so that what clients are told always comes after both.
    std::lock_guard lock(mutex);
    stopAsTold();
    startAsPlayed();
}

void Modem::play(const Scenario& scenario) {
    std::lock_guard lock(mutex);
    faults.seed(scenario.seed);
    for (const Fault& fault : scenario.faults) {
        faults.add(fault);
    }
    isStartDelayed = scenario.startsAfter || scenario.neverStarts;
    startDelay = scenario.neverStarts ? std::nullopt : scenario.startsAfter;
    for (const auto& [type, capacity] :
         {std::pair(WDS_PROFILE_TYPE_3GPP_V01, scenario.capacity3gpp),
          std::pair(WDS_PROFILE_TYPE_3GPP2_V01, scenario.capacity3gpp2)}) {
        if (capacity) {
            service.findTable(type)->setCapacity(*capacity);
        }
    }
    for (const TimedAction& event : scenario.events) {
        modemThread.post(
            [this, action = event.action] { afterCallbacks([=, this] { performNow(action); }); },
            soonest(event.at), &heldActions);
    }
}

void Modem::endScenario() {
    modemThread.forget(&heldActions);
    modemThread.forget(&startDelay);
    isStartDelayed = false;
    heldIndications.clear();
    heldActions.clear();
}

void Modem::performNow(const Action& action) {
    std::lock_guard lock(mutex);
    perform(action);
}

void Modem::performAll(const Fault& fault, Moment moment) {
    for (const Consequence& consequence : fault.consequences) {
        if (consequence.moment == moment) {
            perform(consequence.action);
        } else if (consequence.moment == Moment::Idle && moment == Moment::BeforeReply) {
            heldActions.push_back(consequence.action);
        }
    }
}

void Modem::perform(const Action& action) {
    using Kind = Action::Kind;
    uint8_t index = 0;
    switch (action.kind) {
        case Kind::PowerOn:
            startNow();
            break;
        case Kind::PowerOff:
            stopNow(action.silent);
            if (action.comesBackAfter) {
                modemThread.post(
                    [this] { afterCallbacks([this] { performNow({Kind::PowerOn}); }); },
                    soonest(*action.comesBackAfter), &startDelay);
            }
            break;
        case Kind::CreateProfile:
            service.createProfile(action.type, action.settings, action.persistent, index);
            break;
        case Kind::ModifyProfile:
            service.modifyProfile(action.type, action.index, action.settings);
            break;
        case Kind::DeleteProfile:
            service.deleteProfile(action.type, action.index);
            break;
        case Kind::SubscriptionChange:
            noteEvent("subscription changed");
            deliverChange({action.type, action.index, WDS_PROFILE_CHANGE_SUBSCRIPTION_V01});
            break;
        case Kind::ProfileReady:
            noteEvent("profiles ready");
            deliverChange({action.type, action.index, WDS_PROFILE_CHANGE_READY_V01});
            break;
        case Kind::RefreshConfiguration:
            noteEvent("stored configuration refreshed");
            service.refreshConfiguration();
            deliverChange({action.type, action.index, WDS_PROFILE_CHANGE_READY_V01});
            break;
        case Kind::SetCapacity:
            noteEvent("capacity set");
            if (ProfileTable* const table = service.findTable(action.type)) {
                table->setCapacity(action.capacity);
            }
            break;
        case Kind::Indication:
            noteEvent("indication sent");
            deliverBytes(action.messageId, action.bytes);
            break;
    }
    reportChanges();
}

void Modem::deliverBytes(unsigned messageId, const std::vector<std::byte>& bytes) {
    for (const auto& [handle, client] : clients) {
        if (client.session.reportsChanges) {
            postIndication(handle, client, messageId, bytes);
        }
    }
}

void Modem::reportChangesOf(const Fault& fault) {
    auto changes = service.takeChanges();
    if (fault.indications == IndicationFault::Reordered) {
        std::reverse(changes.begin(), changes.end());
    } else if (fault.indications == IndicationFault::Withheld) {
        changes.clear();
    }
    const int copies = fault.indications == IndicationFault::Duplicated ? 2 : 1;
    const bool isUnknown = fault.indications == IndicationFault::UnknownId;
    const unsigned id = isUnknown ? kUnknownMessage : unsigned{RAV_WDS_PROFILE_CHANGED_IND_V01};
    for (const auto& change : changes) {
        auto bytes = encodeChange(change);
        if (fault.indications == IndicationFault::Malformed) {
            bytes.resize(bytes.size() / 2);
        }
        for (const auto& [handle, client] : clients) {
            for (int i = 0; client.session.isReported(change) && i < copies; ++i) {
                heldIndications.push_back({handle, id, bytes});
            }
        }
    }
    if (fault.order != IndicationOrder::After) {
        deliverHeld();
    }
}

void Modem::deliverHeld() {
    for (const HeldIndication& held : std::exchange(heldIndications, {})) {
        if (const Client* const client = findClient(held.client, false)) {
            postIndication(held.client, *client, held.messageId, held.bytes);
        }
    }
}

bool Modem::deliverHeldAndIdle() {
    std::lock_guard lock(mutex);
    const bool isAny = !heldIndications.empty() || !heldActions.empty();
    deliverHeld();
    for (const Action& action : std::exchange(heldActions, {})) {
        perform(action);
    }
    return isAny;
}

}  // namespace kiv::emulator
