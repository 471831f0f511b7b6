#ifndef EMULATOR_ENCODING_H
#define EMULATOR_ENCODING_H

#include <cstddef>
#include <span>
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

}  // namespace kiv::emulator

#endif
