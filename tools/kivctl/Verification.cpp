#include "Verification.h"

#include "Manager.h"

namespace kiv::kivctl {
namespace {

constexpr char kModem[] = "modem";
constexpr char kLibrary[] = "library";
constexpr char kPresent[] = "present";

Setting presence(bool asked) {
    return {"profile", asked ? std::optional<std::string>(kPresent) : std::nullopt};
}

}  // namespace

void Verifier::checkModem(const std::string& step, const ModemTable& expected,
                          const ModemTable& held) {
    if (expected == held) {
        return;
    }
    for (const HeldProfile& profile : expected) {
        const std::string name = profileText(profile.techType, profile.id);
        if (const HeldProfile* other = findProfile(held, profile.techType, profile.id)) {
            compare(step, kModem, name, modemSettings(profile), modemSettings(*other));
        } else {
            add(step, kModem, name, presence(true), std::nullopt);
        }
    }
    for (const HeldProfile& profile : held) {
        if (findProfile(expected, profile.techType, profile.id) == nullptr) {
            add(step, kModem, profileText(profile.techType, profile.id), presence(false), kPresent);
        }
    }
}

void Verifier::checkKey(const std::string& step, const ModemTable& expected,
                        const std::shared_ptr<IProfileKey>& key) {
    const std::string name = profileText(key->getTechType(), key->getProfileId());
    const HeldProfile* profile = findProfile(expected, key->getTechType(), key->getProfileId());
    const auto params = Manager::getInstance().getProfile(key);
    if (profile == nullptr || !params) {
        if ((profile != nullptr) != params.has_value()) {
            add(step, kLibrary, name, presence(profile != nullptr),
                presence(params.has_value()).value);
        }
        return;
    }
    compare(step, kLibrary, name, clientSettings(asClientReads(*profile)), clientSettings(*params));
}

void Verifier::checkLibrary(const std::string& step, const ModemTable& expected) {
    const auto keys = Manager::getInstance().filter(FilterProfileParams{});
    if (keys.size() != expected.size()) {
        add(step, kLibrary, "", {"profiles", std::to_string(expected.size())},
            std::to_string(keys.size()));
    }
    ModemTable missing = expected;
    for (const auto& key : keys) {
        checkKey(step, expected, key);
        std::erase_if(missing, [&](const HeldProfile& profile) {
            return profile.hasId(key->getTechType(), key->getProfileId());
        });
    }
    for (const HeldProfile& profile : missing) {
        add(step, kLibrary, profileText(profile.techType, profile.id), presence(true),
            std::nullopt);
    }
}

void Verifier::add(const std::string& step, const char* holder, const std::string& profile,
                   const Setting& asked, const std::optional<std::string>& held) {
    found.push_back({plmn, step, holder, profile, asked.label, asked.value, held, asked.isSecret});
}

void Verifier::compare(const std::string& step, const char* holder, const std::string& profile,
                       const std::vector<Setting>& asked, const std::vector<Setting>& held) {
    for (size_t i = 0; i < asked.size(); ++i) {
        if (asked[i].value != held[i].value) {
            add(step, holder, profile, asked[i], held[i].value);
        }
    }
}

}  // namespace kiv::kivctl
