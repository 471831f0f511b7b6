#ifndef TOOLS_KIVCTL_APNFILE_H
#define TOOLS_KIVCTL_APNFILE_H

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "ProfileParams.h"

namespace kiv::kivctl {

/// One <apn> element, in the words of the library.
struct ApnEntry {
    size_t line = 0;
    ProfileParams params;

    /// False if the entry has no types at all.
    bool isOfType(ApnTypes type) const { return (params.getApnTypesMask() & toMask(type)) != 0; }
};

/// The entries of one PLMN, in the order of the file.
struct Operator {
    std::string plmn;  ///< MCC and MNC digits; empty for entries that name neither
    std::vector<ApnEntry> entries;
};

/// A file in the format of Android's apns-conf.xml.
struct ApnFile {
    std::vector<Operator> operators;    ///< in the order of their first entries
    std::vector<std::string> problems;  ///< "FILE:LINE: what", of entries that are left out

    size_t entryCount() const;
    /// Null if there is none.
    const Operator* find(std::string_view plmn) const;
};

/// The file as a whole can't be used; the text tells where and why.
struct ApnFileError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Reads the attributes that have a place in a profile; others mean nothing here.
///  - An attribute that is absent is a setting that is not given; so is an empty user or password
///    and a skip_464xlat of -1. An empty apn is a name, the empty one.
///  - Blanks around the APN name and around the words of type are dropped: no name on the air has
///    them. Within the name they stay.
///  - An entry with any problem is left out as a whole.
/// Throws ApnFileError.
ApnFile readApnFile(const std::string& path);

/// The same for a text; path is only used in messages.
ApnFile parseApnFile(const std::string& path, std::string_view text);

}  // namespace kiv::kivctl

#endif
