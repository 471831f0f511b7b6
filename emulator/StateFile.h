#ifndef EMULATOR_STATEFILE_H
#define EMULATOR_STATEFILE_H

#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "WdsService.h"

namespace kiv::emulator {

/// The file can't be used or written; the text tells which file, where in it, and why.
struct StateFileError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Is asked before each step of a write; anything but 0 makes the step fail with that errno.
using WriteHook = std::function<int(const char* step)>;

/// The profile tables as a JSON text, all their profiles with the members that are present:
///
///   {"format": "kivr modem state", "version": 1, "tables": {
///     "3gpp": {"capacity": 255, "profiles": [
///       {"index": 1, "persistent": true, "settings": {"apn_name": "internet", "pdp_type": 3}}]},
///     "3gpp2": {"capacity": 255, "profiles": []}}}
///
/// Members bear the names of the data service's record, and numbers are unsigned and as wide as
/// there. A text of other than printable ASCII is written as {"hex": "c3a9"}.
/// Throws StateFileError for a table that holds more than its capacity.
std::string formatState(const std::string& path, const ProfileTables& tables);

/// Reads such a text, which may be hostile: anything that formatState can't have written is
/// refused with a StateFileError, but for blanks, the order of the keys, and texts in UTF-8 as
/// they are. Path is only used in messages.
ProfileTables parseState(const std::string& path, std::string_view text);

/// Replaces the file, or leaves it as it is and throws StateFileError. If the folder can't be
/// synchronised, the new file is in its place although this throws.
/// Any thread; of several writers one wins. Blocks until the file is on its medium.
void writeStateFile(const std::string& path, const ProfileTables& tables,
                    const WriteHook& hook = nullptr);

/// Throws StateFileError; reads regular files only, so that it does not block for good.
ProfileTables readStateFile(const std::string& path);

}  // namespace kiv::emulator

#endif
