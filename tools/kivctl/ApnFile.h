#ifndef TOOLS_KIVCTL_APNFILE_H
#define TOOLS_KIVCTL_APNFILE_H

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "ProfileParams.h"

namespace kiv::kivctl {

enum class Severity {
    note,     ///< nothing is lost
    warning,  ///< a part of what the entry says is not heeded
    error     ///< the entry is left out
};

struct Flaw {
    Severity severity;
    std::string what;
    std::string remedy;  ///< what is done about it
};

/// One <apn> element, in the words of the library.
struct ApnEntry {
    size_t line = 0;
    size_t column = 0;
    std::string carrier;
    std::string plmn;      ///< MCC and MNC digits; empty if it names none
    int carrierId = -1;    ///< -1 if it names none
    std::string mvnoType;  ///< spn, imsi, gid or iccid; empty for an entry of the host's own
    std::string mvnoData;
    bool isEnabled = true;
    bool isUsable = true;    ///< false if nobody can say whom it serves or what it asks
    bool admitsLte = true;   ///< LTE or NR
    bool admits3gpp = true;  ///< any 3GPP technology
    ProfileParams params;
    std::vector<Flaw> flaws;

    bool isOfType(ApnTypes type) const { return (params.getApnTypesMask() & toMask(type)) != 0; }
};

/// A file in the format of Android's apns-conf.xml.
struct ApnFile {
    std::string path;
    std::vector<ApnEntry> entries;                                ///< in the order of the file
    std::unordered_map<std::string, std::vector<size_t>> byPlmn;  ///< indexes of entries
    std::unordered_map<int, std::vector<size_t>> byCarrierId;
};

/// Is told now and then how many of how many bytes have been read; the second is 0 if unknown. May
/// throw, which ends the reading.
using ReadingProgress = std::function<void(size_t done, size_t total)>;

/// Reads the attributes that have a place in a profile or say whom an entry serves; others mean
/// nothing here.
///  - An attribute that is absent or empty is a setting that is not given; so is "-1" where a
///    number or a word is expected. Without a type an entry is of every type.
///  - Blanks around the APN name and around the words of a list are dropped: no name on the air
///    has them. Within the name they stay.
///  - What can't be read is left away with a flaw, and the entry with it only if nobody could say
///    any more whom it serves or what it asks.
/// Threads: any. Blocking: as the file. Throws Failure where the file as a whole can't be used.
ApnFile readApnFile(const std::string& path, const ReadingProgress& progress = nullptr);

/// The same for a text; path is only used in messages.
ApnFile parseApnFile(const std::string& path, std::string_view text);

/// Reads the attributes of one <apn> element: names and values by turns, and a null at the end.
/// Line and column are for the caller to set. Threads: any. Blocking: never.
ApnEntry readApnEntry(const char* const* attributes);

}  // namespace kiv::kivctl

#endif
