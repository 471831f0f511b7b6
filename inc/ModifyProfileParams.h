#ifndef KIVR_MODIFYPROFILEPARAMS_H
#define KIVR_MODIFYPROFILEPARAMS_H

#include "ProfileParams.h"

namespace kiv {

/// The settings to change in an existing profile: those that are present. The others stay as they
/// are, so a modification can't remove a setting. A plain value, like its base.
class KIV_API ModifyProfileParams : public ProfileParams {
public:
    ModifyProfileParams() = default;
    /// Changes to every setting that params holds.
    explicit ModifyProfileParams(const ProfileParams& params) : ProfileParams(params) {}
};

}  // namespace kiv

#endif
