// The part of the modem that a scenario plays: what happens to it without a request.

#include <algorithm>
#include <utility>

#include "Encoding.h"
#include "Modem.h"

namespace kiv::emulator {
namespace {

constexpr unsigned kUnknownMessage = 0x7FFF;

}  // namespace

void Modem::startAsTold() {
    journal.addEvent("program", 0, "start");
    if (running || !std::exchange(isStartDelayed, false)) {
        startNow();
    } else if (startDelay) {
        perform({.kind = Action::Kind::PowerOff, .comesBackAfter = startDelay});
    }
}

void Modem::stopAsTold() {
    journal.addEvent("program", 0, "stop");
    stopNow(false);
}

void Modem::performLater(const Action& action, std::chrono::milliseconds delay,
                         TaskName::Kind name) {
    const auto task = [=, this] {
        afterCallbacks(threads.isVirtual(), [=, this] {
            std::lock_guard lock(mutex);
            perform(action);
        });
    };
    // Never at once, beside what the program does just then.
    threads.post(Thread::Modem, task, std::max(delay, std::chrono::milliseconds(1)), {name});
}

void Modem::endScenario() {
    threads.forget({TaskName::Kind::Event});
    threads.forget({TaskName::Kind::PowerOn});
    isStartDelayed = false;
    heldIndications.clear();
    heldActions.clear();
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
                performLater({Kind::PowerOn}, *action.comesBackAfter, TaskName::Kind::PowerOn);
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
            journal.addEvent("event", 0, "subscription changed");
            deliverChange({action.type, action.index, WDS_PROFILE_CHANGE_SUBSCRIPTION_V01});
            break;
        case Kind::ProfileReady:
            journal.addEvent("event", 0, "profiles ready");
            deliverChange({action.type, action.index, WDS_PROFILE_CHANGE_READY_V01});
            break;
        case Kind::RefreshConfiguration:
            journal.addEvent("event", 0, "stored configuration refreshed");
            service.refreshConfiguration();
            deliverChange({action.type, action.index, WDS_PROFILE_CHANGE_READY_V01});
            break;
        case Kind::SetCapacity:
            journal.addEvent("event", 0, "capacity set");
            if (ProfileTable* const table = service.tables.find(action.type)) {
                table->setCapacity(action.capacity);
            }
            break;
        case Kind::Indication:
            journal.addEvent("event", 0, "indication sent");
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
        for (const auto& entry : clients) {
            auto* const handle = entry.first;
            for (int i = 0; entry.second.session.isReported(change) && i < copies; ++i) {
                heldIndications.push_back([=, this] {
                    if (const Client* const one = findClient(handle, false)) {
                        postIndication(handle, *one, id, bytes);
                    }
                });
            }
        }
    }
    if (fault.order != IndicationOrder::After) {
        deliverHeld();
    }
}

void Modem::deliverHeld() {
    for (const auto& deliver : std::exchange(heldIndications, {})) {
        deliver();
    }
}

}  // namespace kiv::emulator
