#ifndef EMULATOR_ENCODING_H
#define EMULATOR_ENCODING_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "wds_v01.h"

namespace kiv::emulator {

/// The bytes of a profile-changed indication on the wire: a sequence of elements, each a one-byte
/// type, a 16-bit length and a value, all numbers little-endian. Element 0x10 holds three 32-bit
/// values: profile type, profile index, change.
std::vector<std::byte> encodeChange(const wds_profile_changed_ind_type_v01& change);

/// Reads such bytes, which may be hostile. Elements of other types are skipped; without element
/// 0x10 the valid flag is 0, with several the last one counts. False for an element that ends
/// beyond the bytes and for an element 0x10 of another length.
bool decodeChange(std::span<const std::byte> bytes, wds_profile_changed_ind_msg_v01& message);

/// The number that bytes hold, the lowest first.
uint64_t toNumber(std::span<const std::byte> bytes);

/// A text of the modem up to its terminating zero; bytes beyond ASCII are shown as Latin-1.
std::string toUtf8(std::span<const std::byte> bytes);

/// Two hexadecimal digits for each byte.
std::string toHex(std::span<const std::byte> bytes);

/// Reads such a text; none for any other.
std::optional<std::vector<std::byte>> fromHex(std::string_view text);

/// Bytes as toHex writes them, but a longer run of zeros as its length in parentheses,
/// "0a(2019)ff".
std::string packBytes(std::span<const std::byte> bytes);

}  // namespace kiv::emulator

#endif
