#ifndef TESTS_SUPPORT_RECORDS_H
#define TESTS_SUPPORT_RECORDS_H

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>
#include <type_traits>

namespace kiv::test {

/// A record of the data service whose bytes, padding included, are all alike.
template <class Record>
Record recordOf(unsigned char byte) {
    static_assert(std::is_trivially_copyable_v<Record>);
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
