#ifndef KIVR_ADDPROFILEPARAMS_H
#define KIVR_ADDPROFILEPARAMS_H

#include <string>

#include "ProfileParams.h"

namespace kiv {

/// The settings of a profile to be created, with where and how long it lives. A plain value, like
/// its base.
class KIV_API AddProfileParams : public ProfileParams {
public:
    /// No setting but the initial-attach flag, which is present even when false. A persistent
    /// profile survives a restart of the modem, and the release of its last key; see IProfileKey
    /// for the others. On 3GPP2 there is no initial-attach profile: the flag does nothing.
    AddProfileParams(bool isPersistent, TechType techType, bool isIAProfile);
    /// The settings of params; isIAProfile overrides the flag that params holds.
    AddProfileParams(const ProfileParams& params, bool isPersistent, TechType techType,
                     bool isIAProfile);

    std::string dump() const override;

    bool getIsPersistent() const { return isPersistent; }
    TechType getTechType() const { return techType; }

private:
    bool isPersistent;
    TechType techType;
};

}  // namespace kiv

#endif
