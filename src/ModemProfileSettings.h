#ifndef KIVR_SRC_MODEMPROFILESETTINGS_H
#define KIVR_SRC_MODEMPROFILESETTINGS_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <tuple>

#include "FilterProfileParams.h"
#include "ProfileParams.h"
#include "ProfileTypes.h"

// What the modem profiles do with their settings, told once for all settings of a kind.
namespace kiv {

/// Calls action with the two places of each setting in order: the profile's field and the params'.
/// Settings is a tuple of such pairs.
template <class Settings, class Action>
void forEach(const Settings& settings, Action action) {
    std::apply([&](const auto&... one) { (action(one.first, one.second), ...); }, settings);
}

/// Takes over the value of other, if it has one.
template <class Value>
void mergeField(std::optional<Value>& field, const std::optional<Value>& other) {
    if (other) {
        field = other;
    }
}

/// The params have the setting, and the profile lacks it or has another value.
template <class Value>
bool differs(const std::optional<Value>& field, const std::optional<Value>& param) {
    return param && field != param;
}

/// Stores what the params have.
template <class Profile, class Settings>
void copySettings(Profile& profile, const Settings& settings, const ProfileParams& params) {
    forEach(settings, [&](auto field, auto param) { mergeField(profile.*field, params.*param); });
}

/// Whether the profile has all that the params have.
template <class Profile, class Settings>
bool matchSettings(const Profile& profile, const Settings& settings, const ProfileParams& params) {
    bool matches = true;
    forEach(settings, [&](auto field, auto param) {
        matches = matches && !differs(profile.*field, params.*param);
    });
    return matches;
}

/// Puts what the params would change into out, and sets changed if that is anything.
template <class Value>
void diffField(const std::optional<Value>& field, const std::optional<Value>& param,
               std::optional<Value>& out, bool& changed) {
    if (differs(field, param)) {
        out = param;
        changed = true;
    }
}

template <class Profile, class Settings>
void diffSettings(const Profile& profile, const Settings& settings, const ProfileParams& params,
                  ProfileParams& out, bool& changed) {
    forEach(settings, [&](auto field, auto param) {
        diffField(profile.*field, params.*param, out.*param, changed);
    });
}

/// Puts what the profile has into out.
template <class Profile, class Settings>
void reportSettings(const Profile& profile, const Settings& settings, ProfileParams& out) {
    forEach(settings, [&](auto field, auto param) { mergeField(out.*param, profile.*field); });
}

/// Takes over what other has.
template <class Profile, class Settings>
void mergeSettings(Profile& profile, const Settings& settings, const Profile& other) {
    forEach(settings, [&](auto field, auto) { mergeField(profile.*field, other.*field); });
}

/// Whether an IP type fits the filter's: equal, or by the looser rules that the filter allows.
inline bool matchIPType(IPType wanted, IPType actual, uint32_t criteria, FilterMatchType subset,
                        FilterMatchType superset) {
    const auto within = [](IPType inner, IPType outer) {
        return (static_cast<uint32_t>(inner) & ~static_cast<uint32_t>(outer)) == 0;
    };
    return wanted == actual || ((criteria & toMask(subset)) != 0 && within(wanted, actual)) ||
           ((criteria & toMask(superset)) != 0 && within(actual, wanted));
}

// The members of the data service's records, each with its flag.

/// Up to the terminating zero, which the modem may have left out.
template <size_t size>
void readText(std::optional<std::string>& field, uint8_t valid, const char (&member)[size]) {
    if (valid != 0) {
        field = std::string(member, strnlen(member, size));
    }
}

template <class Value, class Member>
void readMember(std::optional<Value>& field, uint8_t valid, Member member) {
    if (valid != 0) {
        field = static_cast<Value>(member);
    }
}

template <class Value, class Member>
void readMember(std::optional<Value>& field, uint8_t valid, Member member,
                Value (*convert)(Member)) {
    if (valid != 0) {
        field = convert(member);
    }
}

/// Cut at a zero byte, and to what the member holds before its terminating zero. The member is all
/// zero before.
template <size_t size>
void writeText(uint8_t& valid, char (&member)[size], const std::optional<std::string>& field) {
    if (field) {
        valid = 1;
        field->copy(member, std::min(field->find('\0'), size - 1));
    }
}

template <class Member, class Value>
void writeMember(uint8_t& valid, Member& member, const std::optional<Value>& field) {
    if (field) {
        valid = 1;
        member = static_cast<Member>(*field);
    }
}

template <class Member, class Value>
void writeMember(uint8_t& valid, Member& member, const std::optional<Value>& field,
                 Member (*convert)(Value)) {
    if (field) {
        valid = 1;
        member = convert(*field);
    }
}

}  // namespace kiv

#endif
