#include "Provisioning.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <list>
#include <map>
#include <string_view>
#include <utility>

#include "Text.h"

namespace kiv::kivctl {

using Key = std::shared_ptr<IProfileKey>;

/// A policy of the library, and what its header promises.
struct Step {
    const char* name;
    Need need;
    bool isTakenWithoutEntry = false;  ///< the network finds an emergency PDN without an APN name
    bool persists = false;             ///< what it creates
    const char* library = "yes";       ///< how reports name what it creates
    std::vector<std::string_view> written{};  ///< settings of a profile that exists
    std::function<Key(Util&, const ProfileParams&)> run;
    /// What it asks for on its own when it creates a profile; may be null.
    void (*complete)(ProfileParams& asked) = nullptr;
};

namespace {

constexpr size_t kNamesPerSign = 1000;

constexpr char kTypes[] = "types";
constexpr char kRelease[] = "release";
constexpr char kAsked[] = "asked";
constexpr char kOthers[] = "others";
constexpr char kReading[] = "reading";

Key takeDataCall(Util& util, const ProfileParams& asked) {
    return util.findOrCreateProfileForSetupDataCall(TechType::Tech3gpp, asked);
}

void completeEmergency(ProfileParams& asked) {
    asked.setIsEmergencySupported(true);
    asked.setApnTypesMask(toMask(ApnTypes::EMERGENCY));
}

const Step kSteps[] = {
    {.name = "attach",
     .need = {{ApnTypes::IA, ApnTypes::DEFAULT}, true},
     .persists = true,
     .library = "attach",
     .written = {"user", "password", "auth", "types", "max_conns", "max_conns_time", "wait_time"},
     .run = std::mem_fn(&Util::findOrCreateProfileForLteAttach)},
    {.name = "default", .need = {{ApnTypes::DEFAULT}}, .run = takeDataCall},
    {.name = "emergency",
     .need = {{ApnTypes::EMERGENCY}},
     .isTakenWithoutEntry = true,
     .persists = true,
     .run = std::mem_fn(&Util::findOrCreateProfileForEmergencyDataCall),
     .complete = completeEmergency},
};

ModemTable readModem() {
    auto& modem = emulator::ModemEmulator::getInstance();
    ModemTable table = modem.profiles(WDS_PROFILE_TYPE_3GPP_V01);
    for (auto& profile : modem.profiles(WDS_PROFILE_TYPE_3GPP2_V01)) {
        table.push_back(profile);
    }
    return table;
}

/// Settings are kept clean by the modem, so that equal ones are equal bytes.
bool areEqual(const ModemTable& a, const ModemTable& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const auto& one, const auto& two) {
        return one.type == two.type && one.index == two.index && one.persistent == two.persistent &&
               std::memcmp(static_cast<const void*>(&one.settings),
                           static_cast<const void*>(&two.settings), sizeof one.settings) == 0;
    });
}

bool isPersistent(const Key& key) {
    const auto type = key->getTechType() == TechType::Tech3gpp2 ? WDS_PROFILE_TYPE_3GPP2_V01
                                                                : WDS_PROFILE_TYPE_3GPP_V01;
    const auto profile = emulator::ModemEmulator::getInstance().profile(
        type, static_cast<uint8_t>(key->getProfileId()));
    return profile && profile->persistent;
}

void put(Snapshot& snapshot, const Held& profile) {
    const auto same = [&](const Held& one) { return one.isSame(profile); };
    const auto found = std::find_if(snapshot.begin(), snapshot.end(), same);
    if (found == snapshot.end()) {
        snapshot.push_back(profile);
    } else {
        *found = profile;
    }
}

}  // namespace

Provisioner::Provisioner(Session& session, const Sim& sim, const std::vector<Candidate>& candidates,
                         int bindValue, CacheReader& cache, Output& output)
    : session(session),
      sim(sim),
      candidates(candidates),
      bindValue(bindValue),
      cache(cache),
      output(output) {}

ProvisioningReport Provisioner::run(bool explained) {
    report.before = readLast = readModem();
    held = cache.read();
    for (const Step& step : kSteps) {
        const Choice choice = choose(candidates, step.need, sim);
        for (const Candidate& one : candidates) {
            if (explained) {
                report.explanations.push_back(
                    {step.name, one.entry, explain(one, choice, step.need, sim)});
            }
        }
        verifier.begin(step.name);
        takeStep(step, choice);
    }
    verifier.begin(kTypes);
    updateTypes();
    report.after = readModem();
    verifier.begin(kRelease);
    release();
    report.mismatches = verifier.mismatches();
    return std::move(report);
}

void Provisioner::takeStep(const Step& step, const Choice& choice) {
    if (choice.entry == nullptr && !step.isTakenWithoutEntry) {
        report.steps.push_back({step.name, "skipped", "", nullptr, choice.reason});
        return;
    }
    const ProfileParams asked = choice.entry ? choice.entry->params : ProfileParams{};
    const Key key = step.run(util, asked);
    session.pause();
    const Snapshot now = cache.read();
    StepReport& row = report.steps.emplace_back(
        StepReport{step.name, "failed", "", choice.entry, choice.reason, key != nullptr});
    Snapshot expected = held;
    if (!key) {
        verifier.add(kAsked, "", "profile", "a profile", nullptr);
    } else {
        const TechType tech = key->getTechType();
        const Held* const before = find(held, tech, key->getProfileId());
        const Held* const after = find(now, tech, key->getProfileId());
        const bool isUnchanged = before && after && before->params.dump() == after->params.dump();
        row.result = before == nullptr ? "created"
                     : isUnchanged     ? "existing, unchanged"
                                       : "existing, changed";
        row.profile = profileText(tech, key->getProfileId());
        report.createdProfiles += before == nullptr ? 1 : 0;
        checkProfile(step, asked, key, now);
        if (after != nullptr) {
            put(expected, *after);
        }
        keys.push_back(key);
    }
    verifier.compare(kOthers, expected, now);
    checkReading(now);
}

void Provisioner::checkProfile(const Step& step, const ProfileParams& asked, const Key& key,
                               const Snapshot& now) {
    const std::string profile = profileText(key->getTechType(), key->getProfileId());
    const auto read = Manager::getInstance().getProfile(key);
    if (!read) {
        verifier.add(kAsked, profile, "profile", "present", nullptr);
        return;
    }
    const Held* const before = find(held, key->getTechType(), key->getProfileId());
    ProfileParams wanted = asked;
    if (before == nullptr && step.complete != nullptr) {
        step.complete(wanted);
    }
    const auto isWritten = [&](const Setting& setting) {
        return std::find(step.written.begin(), step.written.end(), setting.name) !=
               step.written.end();
    };
    for (const Setting& setting : allSettings()) {
        const Json value = setting.print(wanted);
        const Json found = setting.print(*read);
        const Json old = before ? setting.print(before->params) : Json();
        if (!value.is_null() && (before == nullptr || isWritten(setting))) {
            verifier.compare(kAsked, profile, setting, value, found);
        } else if (before != nullptr && (step.written.empty() || value.is_null() ||
                                         !kivctl::areEqual(setting, value, found))) {
            // What was not asked for stays as it was.
            verifier.compare(kOthers, profile, setting, old, found);
        }
    }
    if (before == nullptr) {
        const Json library = allSettings().back().print(*read);
        verifier.compare(kAsked, profile, allSettings().back(), step.library, library);
        if (isPersistent(key) != step.persists) {
            verifier.add(kAsked, profile, "persistent", step.persists, !step.persists);
        }
        if (const Held* one = find(now, key->getTechType(), key->getProfileId());
            one != nullptr && !step.persists) {
            temporary.push_back(*one);
        }
    }
}

void Provisioner::updateTypes() {
    std::map<std::string, std::list<ProfileParams>> byName;
    std::vector<const ApnEntry*> asked;
    for (const Candidate& one : candidates) {
        if (one.verdict == Verdict::Serves && one.entry->admits3gpp) {
            asked.push_back(one.entry);
            byName[lowered(one.entry->params.getApnName())].push_back(one.entry->params);
        }
    }
    // A call for each APN: the library compares each of its names with each of its entries.
    size_t done = 0;
    for (const auto& [name, entries] : byName) {
        if (++done % kNamesPerSign == 0) {
            output.showProgress("APN types", done, byName.size());
        }
        util.updateAPNTypeBitmaskOnModemProfile(entries);
    }
    session.pause();
    const Snapshot now = cache.read();
    const size_t stepsBefore = report.steps.size();
    const std::string reason = "types of " + std::to_string(asked.size()) + " entries";
    for (const Held& old : held) {
        const Held* const other = find(now, old.techType, old.id);
        if (other == nullptr || other->params.dump() != old.params.dump()) {
            report.steps.push_back(
                {kTypes, "existing, changed", profileText(old.techType, old.id), nullptr, reason});
        }
    }
    if (report.steps.size() == stepsBefore) {
        report.steps.push_back({kTypes, "nothing to change", "", nullptr, reason});
    }
    checkTypes(asked, now);
    checkReading(now);
}

/// Only the types of profiles whose APN was asked for may change, and only to types asked for it.
void Provisioner::checkTypes(const std::vector<const ApnEntry*>& asked, const Snapshot& now) {
    std::map<std::string, uint32_t> masks;
    for (const ApnEntry* entry : asked) {
        masks[lowered(entry->params.getApnName())] |= entry->params.getApnTypesMask();
    }
    Snapshot expected = held;
    for (Held& one : expected) {
        const Held* const other = find(now, one.techType, one.id);
        const auto mask = masks.find(lowered(one.params.getApnName()));
        if (other != nullptr && one.params.hasApnName() && mask != masks.end() &&
            (other->params.getApnTypesMask() & ~mask->second) == 0 &&
            other->params.hasApnTypesMask()) {
            one.params.setApnTypesMask(other->params.getApnTypesMask());
        }
    }
    verifier.compare(kOthers, expected, now);
}

void Provisioner::release() {
    Snapshot expected = held;
    for (const Held& one : std::exchange(temporary, {})) {
        std::erase_if(expected, [&](const Held& other) { return other.isSame(one); });
    }
    keys.clear();
    session.pause();
    const Snapshot now = cache.read();
    verifier.compare(kOthers, expected, now);
    checkReading(now, session.hasScenario());
}

/// Without a change of the modem since the last reading there is nothing new to be read. With a
/// scenario a reading would heal what is broken, and use up faults, so that it comes last.
void Provisioner::checkReading(const Snapshot& now, bool isForced) {
    held = now;
    ModemTable table = readModem();
    if (!isForced && (session.hasScenario() || areEqual(table, readLast))) {
        return;
    }
    readLast = std::move(table);
    if (temporary.empty()) {
        Manager::getInstance().refresh(PDCRefreshStatus::Complete);
        held = cache.read();
        verifier.compare(kReading, held, now);
    } else {
        verifier.compare(kReading, readAnew(bindValue), now);
    }
}

}  // namespace kiv::kivctl
