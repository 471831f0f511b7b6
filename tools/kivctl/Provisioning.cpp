#include "Provisioning.h"

#include <algorithm>
#include <list>
#include <tuple>
#include <utility>

namespace kiv::kivctl {
namespace {

constexpr char kAttach[] = "attach";
constexpr char kDefault[] = "default";
constexpr char kEmergency[] = "emergency";
constexpr char kTypes[] = "types";
constexpr char kRelease[] = "release";

void insert(ModemTable& table, const HeldProfile& profile) {
    const auto place = std::find_if(table.begin(), table.end(), [&](const HeldProfile& other) {
        return std::tie(other.techType, other.id) > std::tie(profile.techType, profile.id);
    });
    table.insert(place, profile);
}

std::string choices(const Outcomes& outcomes) {
    std::string text;
    for (const Outcome& outcome : outcomes) {
        text += text.empty() ? "" : " or ";
        text += outcome.created ? "a new profile"
                                : profileText(outcome.profile.techType, outcome.profile.id);
    }
    return text;
}

}  // namespace

Provisioner::Provisioner(const Session& session, const Operator& served)
    : session(session), served(served), verifier(served.plmn) {}

ProvisioningReport Provisioner::run() {
    report.before = table = readModemTable();
    const ApnEntry* general = firstOfType(ApnTypes::DEFAULT);
    const ApnEntry* attach = firstOfType(ApnTypes::IA);
    attach = attach != nullptr ? attach : general;
    if (attach != nullptr) {
        const Outcomes outcomes = expectAttach(table, attach->params);
        finish(kAttach, attach, outcomes, util.findOrCreateProfileForLteAttach(attach->params));
    } else {
        skip(kAttach, "ia or default");
    }
    if (general != nullptr) {
        const Outcomes outcomes = expectDataCall(table, general->params);
        finish(kDefault, general, outcomes,
               util.findOrCreateProfileForSetupDataCall(TechType::Tech3gpp, general->params));
    } else {
        skip(kDefault, "default");
    }
    // The network finds an emergency PDN without an APN name.
    const ApnEntry* emergency = firstOfType(ApnTypes::EMERGENCY);
    const ProfileParams asked = emergency != nullptr ? emergency->params : ProfileParams{};
    const Outcomes outcomes = expectEmergency(table, asked);
    finish(kEmergency, emergency, outcomes, util.findOrCreateProfileForEmergencyDataCall(asked));
    updateTypes();
    release();
    report.mismatches = verifier.mismatches();
    return std::move(report);
}

const ApnEntry* Provisioner::firstOfType(ApnTypes type) const {
    const auto found = std::find_if(served.entries.begin(), served.entries.end(),
                                    [&](const ApnEntry& entry) { return entry.isOfType(type); });
    return found == served.entries.end() ? nullptr : &*found;
}

void Provisioner::skip(const char* step, const char* missingTypes) {
    report.steps.push_back(
        {step, std::string("skipped: no entry of type ") + missingTypes, "", nullptr});
}

void Provisioner::finish(const char* step, const ApnEntry* entry, const Outcomes& outcomes,
                         Key key) {
    if (!key) {
        report.steps.push_back({step, "failed", "", entry});
        verifier.add(step, "library", "", {"profile", choices(outcomes)}, std::nullopt);
        checkModem(step, table);
        return;
    }
    const TechType tech = key->getTechType();
    const int id = key->getProfileId();
    const ModemTable before = table;
    const HeldProfile* old = findProfile(before, tech, id);
    const auto outcome = std::find_if(outcomes.begin(), outcomes.end(), [&](const Outcome& one) {
        return one.created == (old == nullptr) && (one.created || one.profile.hasId(tech, id));
    });
    ModemTable expected = before;
    if (outcome == outcomes.end()) {
        verifier.add(step, "library", "", {"profile", choices(outcomes)}, profileText(tech, id));
    } else if (old == nullptr) {
        HeldProfile profile = outcome->profile;
        profile.techType = tech;
        profile.id = id;
        insert(expected, profile);
    } else {
        *findProfile(expected, tech, id) = outcome->profile;
    }
    checkModem(step, expected);
    verifier.checkKey(step, expected, key);
    keys.push_back(std::move(key));

    const HeldProfile* now = findProfile(table, tech, id);
    const bool isSame = old != nullptr && now != nullptr && *old == *now;
    report.createdProfiles += old == nullptr ? 1 : 0;
    report.steps.push_back({step,
                            old == nullptr ? "created"
                            : isSame       ? "existing, unchanged"
                                           : "existing, changed",
                            profileText(tech, id), entry});
}

void Provisioner::updateTypes() {
    std::list<ProfileParams> asked;
    for (const ApnEntry& entry : served.entries) {
        asked.push_back(entry.params);
    }
    ModemTable expected = table;
    expectTypes(expected, asked);
    const ModemTable before = table;
    util.updateAPNTypeBitmaskOnModemProfile(asked);
    checkModem(kTypes, expected);
    const size_t stepsBefore = report.steps.size();
    for (const HeldProfile& old : before) {
        const HeldProfile* now = findProfile(table, old.techType, old.id);
        if (now == nullptr || *now != old) {
            report.steps.push_back(
                {kTypes, "existing, changed", profileText(old.techType, old.id), nullptr});
        }
    }
    if (report.steps.size() == stepsBefore) {
        report.steps.push_back({kTypes, "nothing to change", "", nullptr});
    }
    session.settle();
    verifier.checkLibrary(kTypes, expected);
    report.after = table;
}

void Provisioner::release() {
    ModemTable expected = table;
    for (const Key& key : keys) {
        std::erase_if(expected, [&](const HeldProfile& profile) {
            return profile.hasId(key->getTechType(), key->getProfileId()) && !profile.persistent &&
                   findProfile(report.before, profile.techType, profile.id) == nullptr;
        });
    }
    keys.clear();
    session.settle();
    checkModem(kRelease, expected);
    verifier.checkLibrary(kRelease, expected);
}

void Provisioner::checkModem(const char* step, const ModemTable& expected) {
    ModemTable held = readModemTable();
    verifier.checkModem(step, expected, held);
    // A step is not blamed for what an earlier one left.
    table = std::move(held);
}

}  // namespace kiv::kivctl
