#ifndef TESTS_SUPPORT_PROFILES_H
#define TESTS_SUPPORT_PROFILES_H

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>

#include "ModemProfile.h"

namespace kiv::test {

/// The PDP types of a 3GPP profile, or a client's home and roaming type, for use in tables.
enum Type { no = -1, unknown = 0, v4 = 1, v6 = 2, v46 = 3 };

struct IPTypes {
    Type common, overrideHome, lte, umts;
};

inline Modem3gppProfile& setIPTypes(Modem3gppProfile& profile, const IPTypes& types) {
    const auto set = [&](void (Modem3gppProfile::*setter)(IPType), Type type) {
        if (type != no) {
            (profile.*setter)(static_cast<IPType>(type));
        }
    };
    set(&Modem3gppProfile::setCommonIPType, types.common);
    set(&Modem3gppProfile::setOverrideHomeIPType, types.overrideHome);
    set(&Modem3gppProfile::setLteRoamIPType, types.lte);
    set(&Modem3gppProfile::setUmtsRoamIPType, types.umts);
    return profile;
}

/// Params, or a subclass, with a home and a roaming type.
template <class Params>
Params withIPTypes(Type home, Type roam) {
    Params params;
    if (home != no) {
        params.setHomeIPType(static_cast<IPType>(home));
    }
    if (roam != no) {
        params.setRoamIPType(static_cast<IPType>(roam));
    }
    return params;
}

/// A record of the data service whose bytes, padding included, are all alike.
template <class Record>
Record recordOf(unsigned char byte) {
    Record record;
    std::memset(&record, byte, sizeof(record));
    return record;
}

template <size_t size>
void setText(unsigned char& valid, char (&member)[size], const std::string& text) {
    valid = 1;
    text.copy(member, size);
}

template <class Member, class Value>
void setMember(unsigned char& valid, Member& member, Value value) {
    valid = 1;
    member = static_cast<Member>(value);
}

/// The offset of the first byte that differs; the size of the records if none does.
template <class Record>
size_t firstDifference(const Record& left, const Record& right) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(&left);
    const auto* others = reinterpret_cast<const unsigned char*>(&right);
    return static_cast<size_t>(std::mismatch(bytes, bytes + sizeof(Record), others).first - bytes);
}

}  // namespace kiv::test

#endif
