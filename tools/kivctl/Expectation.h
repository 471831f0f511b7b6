#ifndef TOOLS_KIVCTL_EXPECTATION_H
#define TOOLS_KIVCTL_EXPECTATION_H

#include <list>
#include <vector>

#include "HeldProfile.h"
#include "ProfileParams.h"

/// What the modem must hold after each step, worked out from the table before it and from what was
/// asked, without looking at the library. Profile updates are not allowed in any step.
namespace kiv::kivctl {

/// One way in which a step may rightly end.
struct Outcome {
    bool created = false;  ///< the id of profile means nothing then
    HeldProfile profile;   ///< what the modem holds of the profile afterwards
};

/// Several where more than one profile fits: the library's choice among them is free.
using Outcomes = std::vector<Outcome>;

Outcomes expectAttach(const ModemTable& table, const ProfileParams& asked);
Outcomes expectDataCall(const ModemTable& table, const ProfileParams& asked);
Outcomes expectEmergency(const ModemTable& table, const ProfileParams& asked);

/// Writes the APN types of all profiles asked for into the table.
void expectTypes(ModemTable& table, const std::list<ProfileParams>& asked);

/// A profile that was created with these settings.
HeldProfile createdProfile(const ProfileParams& asked, bool persistent, const char* name);

/// The profile after these changes.
HeldProfile changedProfile(HeldProfile profile, const ProfileParams& changes);

}  // namespace kiv::kivctl

#endif
