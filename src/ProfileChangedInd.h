#ifndef KIVR_SRC_PROFILECHANGEDIND_H
#define KIVR_SRC_PROFILECHANGEDIND_H

#include <cstdint>
#include <string>

#include "ProfileTypes.h"

namespace kiv {

/// What happened to a profile in the modem. The numbers are fixed.
enum class ProfileChangeEvent : int32_t {
    Create = 0,
    Delete = 1,
    Modify = 2,
    SubscriptionChange = 3,
    ProfileReady = 4,
};

/// The modem's word that a profile changed.
struct ProfileChangedInd {
    TechType techType;
    int profileId;  ///< the modem's profile index, 0 to 255
    ProfileChangeEvent event;

    /// One line of text, for the log.
    std::string dump() const;

    bool operator==(const ProfileChangedInd&) const = default;
};

}  // namespace kiv

#endif
