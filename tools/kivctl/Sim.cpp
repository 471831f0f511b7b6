#include "Sim.h"

#include <algorithm>
#include <limits>
#include <set>
#include <unordered_set>

#include "Failure.h"
#include "SettingList.h"
#include "Text.h"

namespace kiv::kivctl {
namespace {

/// A text that a SIM has, by its name in an option and in mvno_type.
struct SimText {
    std::string_view name;
    std::string Sim::*member;
};
constexpr SimText kSimTexts[] = {
    {"spn", &Sim::spn}, {"imsi", &Sim::imsi}, {"gid", &Sim::gid}, {"iccid", &Sim::iccid}};
constexpr std::string_view kCarrierId = "carrier-id";

[[noreturn]] void refuse(const std::string& what) { throw Failure(kUsage, what); }

std::string* memberOf(Sim& sim, std::string_view name) {
    for (const SimText& one : kSimTexts) {
        if (one.name == name) {
            return &(sim.*one.member);
        }
    }
    return nullptr;
}

bool startsWith(std::string_view text, std::string_view start) {
    return text.substr(0, start.size()) == start;
}

bool fitsImsi(std::string_view imsi, std::string_view pattern) {
    return imsi.size() >= pattern.size() &&
           std::equal(pattern.begin(), pattern.end(), imsi.begin(),
                      [](char p, char digit) { return p == 'x' || p == 'X' || p == digit; });
}

std::string mvnoText(const ApnEntry& entry) { return entry.mvnoType + "=" + entry.mvnoData; }

/// A SIM that the entry is for, as plain as can be.
Sim simOf(const ApnEntry& entry) {
    Sim sim;
    sim.plmn = entry.plmn;
    if (!entry.mvnoType.empty() && !entry.plmn.empty()) {
        std::string& member = *memberOf(sim, entry.mvnoType);
        member = entry.mvnoData;
        if (entry.mvnoType == "imsi") {
            std::replace_if(
                member.begin(), member.end(), [](char c) { return c > '9'; }, '0');
        }
    } else if (entry.plmn.empty()) {
        sim.carrierId = entry.carrierId;
    }
    return sim;
}

std::string typeText(ApnTypes type) { return apnTypeText(toMask(type)); }

}  // namespace

std::string Sim::text() const {
    std::string text = plmn;
    const auto add = [&](std::string_view name, const std::string& value) {
        text += (text.empty() ? "" : ",") + std::string(name) + "=" + value;
    };
    for (const SimText& one : kSimTexts) {
        if (!(this->*one.member).empty()) {
            add(one.name, this->*one.member);
        }
    }
    if (carrierId >= 0) {
        add(kCarrierId, std::to_string(carrierId));
    }
    return text;
}

Sim parseSim(std::string_view text) {
    Sim sim;
    std::string* last = nullptr;
    std::set<std::string_view> seen;
    const std::vector<std::string_view> pieces = split(text, ',');
    for (const std::string_view& piece : pieces) {
        const size_t sign = std::min(piece.find('='), piece.size());
        const std::string_view name = piece.substr(0, sign);
        const std::string_view value = piece.substr(std::min(sign + 1, piece.size()));
        std::string* const member = sign < piece.size() ? memberOf(sim, name) : nullptr;
        const bool isNamed = member != nullptr || (sign < piece.size() && name == kCarrierId);
        if (isNamed && (!seen.insert(name).second || value.empty())) {
            refuse("--sim: " + quote(name) + " is given twice, or without a value");
        }
        if (member != nullptr) {
            *member = value;
            last = member;
        } else if (isNamed) {
            sim.carrierId = readNumber(value, std::numeric_limits<int>::max()).value_or(-1);
            if (sim.carrierId < 0) {
                refuse("--sim: carrier-id " + quote(value) + " is not a number");
            }
        } else if (&piece == &pieces.front() && areDigits(piece, 5, 6)) {
            sim.plmn = piece;
        } else if (last != nullptr && sign == piece.size()) {
            *last += "," + std::string(piece);
        } else if (&piece == &pieces.front()) {
            refuse("--sim: " + quote(piece) + " is not 5 or 6 digits (MCC and MNC)");
        } else {
            const std::string near =
                nearest(name, {"spn", "imsi", "gid", "iccid", std::string(kCarrierId)});
            refuse("--sim: nothing is named " + quote(name) +
                   (near.empty() ? "" : "; did you mean " + near + "?"));
        }
    }
    if (!sim.imsi.empty() && !areDigits(sim.imsi, 6, 15)) {
        refuse("--sim: imsi " + quote(sim.imsi) + " is not 6 to 15 digits");
    }
    if (sim.plmn.empty() && sim.carrierId < 0) {
        refuse("--sim: neither a PLMN (MCC and MNC) nor a carrier-id in " + quote(text));
    }
    return sim;
}

bool isOfMvno(const ApnEntry& entry, const Sim& sim) {
    const std::string& data = entry.mvnoData;
    if (data.empty()) {
        return false;
    }
    if (entry.mvnoType == "spn") {
        return lowered(sim.spn) == lowered(data);
    }
    if (entry.mvnoType == "gid") {
        return startsWith(lowered(sim.gid), lowered(data));
    }
    return entry.mvnoType == "imsi" ? fitsImsi(sim.imsi, data) : startsWith(sim.iccid, data);
}

std::vector<Candidate> candidatesFor(const ApnFile& file, const Sim& sim) {
    std::vector<Candidate> candidates;
    bool hasMvno = false;
    const auto add = [&](size_t index, bool byCarrierId) {
        const ApnEntry& entry = file.entries[index];
        const bool isMvno = !entry.mvnoType.empty();
        const bool isMeant = byCarrierId || !isMvno || isOfMvno(entry, sim);
        const Verdict verdict = !entry.isUsable    ? Verdict::LeftOut
                                : !isMeant         ? Verdict::OtherMvno
                                : !entry.isEnabled ? Verdict::Disabled
                                                   : Verdict::Serves;
        hasMvno = hasMvno || (isMvno && verdict == Verdict::Serves);
        candidates.push_back({&entry, verdict, byCarrierId});
    };
    if (const auto found = file.byCarrierId.find(sim.carrierId); found != file.byCarrierId.end()) {
        for (const size_t index : found->second) {
            add(index, true);
        }
    }
    if (const auto found = file.byPlmn.find(sim.plmn); found != file.byPlmn.end()) {
        for (const size_t index : found->second) {
            if (sim.carrierId < 0 || file.entries[index].carrierId != sim.carrierId) {
                add(index, false);
            }
        }
    }
    for (Candidate& one : candidates) {
        if (hasMvno && one.verdict == Verdict::Serves && !one.byCarrierId &&
            one.entry->mvnoType.empty()) {
            one.verdict = Verdict::Represented;
        }
    }
    return candidates;
}

std::string reasonOf(const Candidate& candidate, const Sim& sim) {
    const ApnEntry& entry = *candidate.entry;
    switch (candidate.verdict) {
        case Verdict::Disabled:
            return "carrier_enabled is false";
        case Verdict::LeftOut:
            return "can't be read: " + entry.flaws.front().what;
        case Verdict::OtherMvno:
            return "only for SIMs with " + mvnoText(entry);
        case Verdict::Represented:
            return "the MVNO has entries of its own";
        default:
            return candidate.byCarrierId    ? "carrier id " + std::to_string(sim.carrierId)
                   : entry.mvnoType.empty() ? "PLMN " + sim.plmn
                                            : "MVNO " + mvnoText(entry);
    }
}

std::vector<Sim> simsOf(const ApnFile& file) {
    std::vector<Sim> sims;
    std::unordered_set<std::string> seen;
    for (const ApnEntry& entry : file.entries) {
        if (entry.isUsable) {
            Sim sim = simOf(entry);
            if (seen.insert(lowered(sim.text())).second) {
                sims.push_back(std::move(sim));
            }
        }
    }
    return sims;
}

std::vector<std::string> alternativesTo(const ApnFile& file, const Sim& sim) {
    std::vector<std::string> texts;
    std::set<std::string> seen = {sim.text()};
    std::set<int> carrierIds;
    const auto add = [&](const ApnEntry& entry) {
        std::vector<Sim> sims = {simOf(entry)};
        if (entry.carrierId >= 0) {
            carrierIds.insert(entry.carrierId);
            Sim& one = sims.emplace_back();
            one.plmn = entry.plmn;
            one.carrierId = entry.carrierId;
        }
        for (const Sim& one : sims) {
            if (entry.isUsable && entry.isEnabled && seen.insert(one.text()).second) {
                texts.push_back(one.text());
            }
        }
    };
    if (const auto found = file.byPlmn.find(sim.plmn); found != file.byPlmn.end()) {
        for (const size_t index : found->second) {
            add(file.entries[index]);
        }
    }
    const std::set<int> own = carrierIds;
    for (const int id : own) {
        for (const size_t index : file.byCarrierId.at(id)) {
            add(file.entries[index]);
        }
    }
    return texts;
}

Choice choose(const std::vector<Candidate>& candidates, const Need& need, const Sim& sim) {
    std::string missing;
    for (const ApnTypes type : need.types) {
        for (const Candidate& one : candidates) {
            if (one.verdict == Verdict::Serves && need.isMet(*one.entry, type)) {
                return {one.entry,
                        missing + "first of type " + typeText(type) + ", by " + reasonOf(one, sim)};
            }
        }
        missing += "none of type " + typeText(type) + "; ";
    }
    return {nullptr, missing.substr(0, missing.size() - 2)};
}

std::string explain(const Candidate& candidate, const Choice& choice, const Need& need,
                    const Sim& sim) {
    const ApnEntry& entry = *candidate.entry;
    if (candidate.verdict != Verdict::Serves) {
        return "no: " + reasonOf(candidate, sim);
    }
    if (candidate.entry == choice.entry) {
        return "yes: " + choice.reason;
    }
    if (!need.isAdmitted(entry)) {
        return std::string("no: not for ") + (need.isLte ? "LTE or NR" : "a 3GPP technology");
    }
    std::string types;
    for (const ApnTypes type : need.types) {
        if (entry.isOfType(type)) {
            return "no: the entry of line " + std::to_string(choice.entry->line) + " comes first";
        }
        types += (types.empty() ? "" : " nor ") + typeText(type);
    }
    return "no: not of type " + types;
}

}  // namespace kiv::kivctl
