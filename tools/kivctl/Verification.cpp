#include "Verification.h"

#include <algorithm>
#include <chrono>
#include <tuple>

#include "Files.h"
#include "ModemEmulator.h"
#include "Text.h"

namespace kiv::kivctl {
namespace {

constexpr char kPresent[] = "present";

/// The cached profiles as the library's dump has them, without their tokens; the same for any two
/// caches that hold the same.
std::string cacheText() {
    std::vector<std::string> lines = Manager::getInstance().dump();
    const auto begin = std::find(lines.begin(), lines.end(), "Cache:");
    const auto end = std::find(begin, lines.end(), "Pending:");
    for (auto line = begin; line != end; ++line) {
        const size_t sign = line->find(": ");
        line->erase(0, sign == line->npos ? 0 : sign);
    }
    std::sort(begin, end);
    std::string text;
    for (auto line = begin; line != end; ++line) {
        text += *line + "\n";
    }
    return text;
}

}  // namespace

Snapshot readLibrary(Manager& manager) {
    Snapshot snapshot;
    for (const auto& key : manager.filter(FilterProfileParams{})) {
        if (auto params = manager.getProfile(key)) {
            snapshot.push_back({key->getTechType(), key->getProfileId(), std::move(*params)});
        }
    }
    std::sort(snapshot.begin(), snapshot.end(), [](const Held& a, const Held& b) {
        return std::tie(a.techType, a.id) < std::tie(b.techType, b.id);
    });
    return snapshot;
}

const Snapshot& CacheReader::read() {
    constexpr size_t kMost = 100;
    if (known.size() > kMost) {
        known.clear();
    }
    const auto [place, isNew] = known.try_emplace(cacheText());
    if (isNew) {
        place->second = readLibrary();
    }
    return place->second;
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

void Verifier::compare(const char* check, const Snapshot& expected, const Snapshot& found) {
    for (const Held& one : expected) {
        const std::string profile = profileText(one.techType, one.id);
        const Held* const other = find(found, one.techType, one.id);
        if (other == nullptr) {
            add(check, profile, "profile", kPresent, nullptr);
        } else if (one.params.dump() != other->params.dump()) {
            for (const Setting& setting : allSettings()) {
                compare(check, profile, setting, setting.print(one.params),
                        setting.print(other->params));
            }
        }
    }
    for (const Held& one : found) {
        if (find(expected, one.techType, one.id) == nullptr) {
            add(check, profileText(one.techType, one.id), "profile", nullptr, kPresent);
        }
    }
}

void Verifier::compare(const char* check, const std::string& profile, const Setting& setting,
                       const Json& expected, const Json& held) {
    if (!areEqual(setting, expected, held)) {
        found.push_back({step, check, profile, setting.name, expected, held, setting.isSecret});
    }
}

void Verifier::add(const char* check, const std::string& profile, const char* setting,
                   const Json& expected, const Json& held) {
    found.push_back({step, check, profile, setting, expected, held});
}

}  // namespace kiv::kivctl
