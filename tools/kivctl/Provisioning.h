#ifndef TOOLS_KIVCTL_PROVISIONING_H
#define TOOLS_KIVCTL_PROVISIONING_H

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "ApnFile.h"
#include "IProfileKey.h"
#include "ModemEmulator.h"
#include "Output.h"
#include "Session.h"
#include "Sim.h"
#include "Util.h"
#include "Verification.h"

namespace kiv::kivctl {

/// What became of one step, or of one profile in it.
struct StepReport {
    std::string step;
    std::string result;
    std::string profile;              ///< as profileText; empty if there is none
    const ApnEntry* entry = nullptr;  ///< that served the step
    std::string reason;               ///< why this entry, or none
    bool isGood = true;
};

/// Why a step took an entry, or did not.
struct Explanation {
    std::string step;
    const ApnEntry* entry;
    std::string verdict;
};

/// All profiles of the modem, 3GPP first.
using ModemTable = std::vector<emulator::Profile>;

struct ProvisioningReport {
    ModemTable before;
    ModemTable after;  ///< while the keys are still held
    std::vector<StepReport> steps;
    std::vector<Explanation> explanations;
    std::vector<Mismatch> mismatches;
    size_t createdProfiles = 0;
};

struct Step;

/// Does for one SIM what a phone's data module does when the SIM is loaded, on the modem of the
/// session: the attach profile, the default data call, the emergency profile, the APN types. At
/// last it gives the profiles back.
///
/// Each step is checked by what the library and the modem say of themselves: the settings asked
/// for are read back through the key, no other profile has changed, a new reading of the modem
/// finds what the cache holds, and the release leaves what it is to leave. Which profile a policy
/// chooses is the library's own decision.
///
/// Threads: one. Ownership: all arguments outlive it. Blocking: as the library.
class Provisioner {
public:
    Provisioner(Session& session, const Sim& sim, const std::vector<Candidate>& candidates,
                int bindValue, CacheReader& cache, Output& output);

    /// Once. Throws Failure.
    ProvisioningReport run(bool explained);

private:
    using Key = std::shared_ptr<IProfileKey>;

    void takeStep(const Step& step, const Choice& choice);
    void checkProfile(const Step& step, const ProfileParams& asked, const Key& key,
                      const Snapshot& now);
    void updateTypes();
    void checkTypes(const std::vector<const ApnEntry*>& asked, const Snapshot& now);
    void release();
    /// The modem, read anew, must have what the cache holds now; ends the step.
    void checkReading(const Snapshot& now, bool isForced = false);

    Session& session;
    const Sim& sim;
    const std::vector<Candidate>& candidates;
    const int bindValue;
    CacheReader& cache;
    Output& output;
    Util util;
    Verifier verifier;
    Snapshot held;        ///< after the last step
    ModemTable readLast;  ///< the modem's table when the library last read it
    std::vector<Key> keys;
    Snapshot temporary;  ///< profiles that go with their keys
    ProvisioningReport report;
};

}  // namespace kiv::kivctl

#endif
