#include "Verification.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <optional>
#include <string_view>
#include <tuple>
#include <utility>

#include "Files.h"
#include "ModemEmulator.h"
#include "Text.h"

namespace kiv::kivctl {
namespace {

constexpr char kPresent[] = "present";

void sort(Snapshot& snapshot) {
    std::sort(snapshot.begin(), snapshot.end(), [](const Held& a, const Held& b) {
        return std::tie(a.techType, a.id) < std::tie(b.techType, b.id);
    });
}

/// The profile that a line of the library's dump is about; none if it can't be found.
std::optional<Held> findHeld(const std::string& line) {
    char name[8] = "";
    int id = 0;
    if (std::sscanf(line.c_str(), "TechType=%7[^,],ProfileId=%d,", name, &id) != 2) {
        return std::nullopt;
    }
    FilterProfileParams filter;
    filter.setFilterByTechType(name == std::string_view("3GPP2") ? TechType::Tech3gpp2
                                                                 : TechType::Tech3gpp);
    filter.setFilterByProfileId(id);
    const auto keys = Manager::getInstance().filter(filter);
    auto params = keys.empty() ? std::nullopt : Manager::getInstance().getProfile(keys.front());
    return params ? std::optional(Held{filter.getFilterByTechType(), id, std::move(*params)})
                  : std::nullopt;
}

}  // namespace

Snapshot readLibrary(Manager& manager) {
    Snapshot snapshot;
    for (const auto& key : manager.filter(FilterProfileParams{})) {
        if (auto params = manager.getProfile(key)) {
            snapshot.push_back({key->getTechType(), key->getProfileId(), std::move(*params)});
        }
    }
    sort(snapshot);
    return snapshot;
}

Snapshot CacheReader::read() {
    constexpr size_t kMost = 1000;
    if (known.size() > kMost) {
        known.clear();
    }
    Snapshot snapshot;
    const std::vector<std::string> lines = Manager::getInstance().dump();
    const auto end = std::find(lines.begin(), lines.end(), "Pending:");
    for (auto line = lines.begin(); line != end; ++line) {
        const size_t sign = line->find(": ");  // behind the token
        if (sign == line->npos) {
            continue;
        }
        auto place = known.find(line->substr(sign + 2));
        if (place == known.end()) {
            std::optional<Held> held = findHeld(line->substr(sign + 2));
            if (!held) {
                return readLibrary();
            }
            place = known.emplace(line->substr(sign + 2), std::move(*held)).first;
        }
        snapshot.push_back(place->second);
    }
    sort(snapshot);
    return snapshot;
}

Snapshot readAnew(int bindValue) {
    constexpr std::chrono::seconds kPatience{1};
    Manager reader;
    reader.init(bindValue, true);
    const auto end = std::chrono::steady_clock::now() + kPatience;
    Snapshot snapshot;
    // The reader finds the modem on a thread of its own.
    while (snapshot.empty() && std::chrono::steady_clock::now() < end) {
        endIfInterrupted();
        emulator::ModemEmulator::getInstance().waitForDeliveries(kPatience);
        reader.refresh(PDCRefreshStatus::Complete);
        snapshot = readLibrary(reader);
    }
    return snapshot;
}

const Held* find(const Snapshot& snapshot, TechType techType, int id) {
    const auto found = std::find_if(snapshot.begin(), snapshot.end(), [&](const Held& one) {
        return one.techType == techType && one.id == id;
    });
    return found == snapshot.end() ? nullptr : &*found;
}

std::string profileText(TechType techType, int id) {
    return (techType == TechType::Tech3gpp2 ? "3GPP2 " : "3GPP ") + std::to_string(id);
}

bool areEqual(const Setting& setting, const Json& a, const Json& b) {
    const bool isName = std::string_view(setting.name) == "apn" && a.is_string() && b.is_string();
    return isName ? lowered(a.get<std::string>()) == lowered(b.get<std::string>()) : a == b;
}

void Verifier::compare(const char* check, const Snapshot& expected, const Snapshot& actual) {
    for (const Held& one : expected) {
        const std::string profile = profileText(one.techType, one.id);
        const Held* const other = find(actual, one.techType, one.id);
        if (other == nullptr) {
            add(check, profile, "profile", kPresent, nullptr);
        } else if (one.params.dump() != other->params.dump()) {
            for (const Setting& setting : allSettings()) {
                compare(check, profile, setting, setting.print(one.params),
                        setting.print(other->params));
            }
        }
    }
    for (const Held& one : actual) {
        if (find(expected, one.techType, one.id) == nullptr) {
            add(check, profileText(one.techType, one.id), "profile", nullptr, kPresent);
        }
    }
}

void Verifier::compare(const char* check, const std::string& profile, const Setting& setting,
                       const Json& expected, const Json& held) {
    if (!areEqual(setting, expected, held)) {
        found.push_back(
            {step, check, profile, setting.name, expected, held, setting.traits.isSecret});
    }
}

void Verifier::add(const char* check, const std::string& profile, const char* setting,
                   const Json& expected, const Json& held) {
    found.push_back({step, check, profile, setting, expected, held});
}

}  // namespace kiv::kivctl
