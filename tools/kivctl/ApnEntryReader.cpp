#include <bitset>
#include <initializer_list>
#include <limits>
#include <unordered_map>

#include "ApnFile.h"
#include "SettingList.h"
#include "Text.h"

namespace kiv::kivctl {
namespace {

constexpr int kTechnologies = 21;
using Technologies = std::bitset<kTechnologies>;

Technologies setOf(std::initializer_list<int> numbers) {
    Technologies set;
    for (const int number : numbers) {
        set.set(static_cast<size_t>(number));
    }
    return set;
}

/// How an attribute numbers the radio technologies.
struct Numbering {
    Technologies lte;  ///< and NR
    Technologies for3gpp;
};

/// Android's network types; the others are 3GPP2 and IWLAN.
const Numbering kNetworkTypes = {setOf({13, 19, 20}),
                                 setOf({1, 2, 3, 8, 9, 10, 13, 15, 16, 17, 19, 20})};
/// Android's radio technologies, likewise.
const Numbering kBearers = {setOf({14, 19, 20}),
                            setOf({1, 2, 3, 9, 10, 11, 14, 15, 16, 17, 19, 20})};

/// One element while its attributes are read.
class EntryReader {
public:
    explicit EntryReader(const char* const* attributes) {
        for (; attributes[0] != nullptr; attributes += 2) {
            if (const std::string_view value = attributes[1]; !trimmed(value).empty()) {
                given.emplace(attributes[0], value);
            }
        }
    }

    ApnEntry read() {
        entry.carrier = trimmed(find("carrier"));
        for (const Setting& setting : allSettings()) {
            readSetting(setting);
        }
        if (entry.isUsable && !entry.params.hasApnTypesMask()) {
            parseTypes("*", entry.params);
        }
        entry.isEnabled = !entry.params.getIsApnDisabled();
        readCarrierId();
        readPlmn();
        readMvno();
        if (entry.isUsable && entry.plmn.empty() && entry.carrierId < 0) {
            leaveOut("neither mcc and mnc nor carrier_id says whom the entry serves");
        }
        readTechnologies();
        return std::move(entry);
    }

private:
    /// Empty if it is not given.
    std::string_view find(std::string_view name) const {
        const auto found = given.find(name);
        return found == given.end() ? std::string_view() : found->second;
    }

    void add(Severity severity, const std::string& what, const char* remedy) {
        entry.flaws.push_back({severity, what, remedy});
    }

    void leaveOut(const std::string& what) {
        add(Severity::error, what, "entry left out");
        entry.isUsable = false;
    }

    void readSetting(const Setting& one) {
        const std::string value = attributeValue(one, find(one.attribute));
        const std::string unread(value.empty() ? "" : one.parse(value, entry.params));
        if (unread.empty()) {
            return;
        }
        const std::string what = std::string(one.attribute) + ": " +
                                 (one.traits.isSecret ? "" : quote(unread) + " is ") + "not " +
                                 one.expected;
        if (!one.print(entry.params).is_null()) {
            add(Severity::warning, what, "what is unknown is dropped, the rest is kept");
        } else if (!one.traits.isTuning) {
            leaveOut(what);
        } else {
            add(Severity::warning, what, "taken as not given");
        }
    }

    void readCarrierId() {
        const std::string_view text = trimmed(find("carrier_id"));
        const auto id = readNumber(text, std::numeric_limits<int>::max());
        entry.carrierId = id.value_or(-1);
        if (!id && !text.empty() && text != "-1") {
            add(Severity::warning, "carrier_id: " + quote(text) + " is not a number",
                "taken as not given");
        }
    }

    void readPlmn() {
        const std::string_view mcc = trimmed(find("mcc"));
        const std::string_view mnc = trimmed(find("mnc"));
        if (areDigits(mcc, 3, 3) && areDigits(mnc, 2, 3)) {
            entry.plmn = std::string(mcc) + std::string(mnc);
        } else if (!mcc.empty() || !mnc.empty()) {
            refuseIdentity("mcc " + quote(mcc) + " and mnc " + quote(mnc) +
                           " are not 3 and 2 or 3 digits");
        }
    }

    /// Something that would say whom the entry serves can't be read.
    void refuseIdentity(const std::string& what) {
        if (entry.carrierId < 0) {
            leaveOut(what);
        } else {
            add(Severity::warning, what, "the entry serves by its carrier id alone");
            entry.plmn.clear();
        }
    }

    void readMvno() {
        const std::string type = lowered(trimmed(find("mvno_type")));
        const std::string data(trimmed(find("mvno_match_data")));
        if (type.empty() && data.empty()) {
            return;
        }
        const bool isKnown = type == "spn" || type == "imsi" || type == "gid" || type == "iccid";
        const bool isPattern =
            type != "imsi" || lowered(data).find_first_not_of("0123456789x") == data.npos;
        if (!isKnown || data.empty() || !isPattern) {
            refuseIdentity("mvno_type " + quote(type) + " with mvno_match_data " + quote(data) +
                           " names no MVNO");
            return;
        }
        entry.mvnoType = type;
        entry.mvnoData = data;
    }

    /// The technologies that an attribute admits; none if it says nothing.
    Technologies readMask(const char* name) {
        Technologies mask;
        std::string unknown;
        const std::string_view text = find(name);
        for (const std::string_view piece : split(text, '|')) {
            const std::string_view word = trimmed(piece);
            const auto number = readNumber(word, kTechnologies - 1);
            if (number) {
                mask.set(static_cast<size_t>(*number));
            } else if (!word.empty() && unknown.empty()) {
                unknown = std::string(name) + ": " + quote(word) + " is not a known technology";
            }
        }
        if (!unknown.empty() && mask.none()) {
            leaveOut(unknown);
        } else if (!unknown.empty()) {
            add(Severity::warning, unknown, "what is unknown is dropped, the rest is kept");
        }
        return mask.reset(0);
    }

    void readTechnologies() {
        constexpr std::pair<const char*, const Numbering*> kAttributes[] = {
            {"network_type_bitmask", &kNetworkTypes},
            {"bearer_bitmask", &kBearers},
            {"bearer", &kBearers}};
        for (const auto& [name, numbering] : kAttributes) {
            if (const Technologies mask = readMask(name); mask.any()) {
                entry.admitsLte = (mask & numbering->lte).any();
                entry.admits3gpp = (mask & numbering->for3gpp).any();
                return;
            }
        }
    }

    std::unordered_map<std::string_view, std::string_view> given;
    ApnEntry entry;
};

}  // namespace

ApnEntry readApnEntry(const char* const* attributes) { return EntryReader(attributes).read(); }

}  // namespace kiv::kivctl
