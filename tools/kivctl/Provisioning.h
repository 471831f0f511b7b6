#ifndef TOOLS_KIVCTL_PROVISIONING_H
#define TOOLS_KIVCTL_PROVISIONING_H

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "ApnFile.h"
#include "Expectation.h"
#include "HeldProfile.h"
#include "IProfileKey.h"
#include "Session.h"
#include "Util.h"
#include "Verification.h"

namespace kiv::kivctl {

/// What became of one step, or of one profile in it.
struct StepReport {
    std::string step;
    std::string result;
    std::string profile;              ///< as profileText; empty if there is none
    const ApnEntry* entry = nullptr;  ///< that served the step
};

struct ProvisioningReport {
    ModemTable before;
    ModemTable after;  ///< while the keys are still held
    std::vector<StepReport> steps;
    size_t createdProfiles = 0;
    std::vector<Mismatch> mismatches;
};

/// Does for one operator what a phone's data module does when a SIM is loaded, on the modem of the
/// session, and checks each step: the attach profile, the default data call, the emergency
/// profile, the APN types. At last it gives the profiles back and checks that as well.
///
/// Threads: one. Ownership: the operator and the session outlive it. Blocking: as the library.
class Provisioner {
public:
    Provisioner(const Session& session, const Operator& served);

    /// Once. Throws ModemUnreachable.
    ProvisioningReport run();

private:
    using Key = std::shared_ptr<IProfileKey>;

    const ApnEntry* firstOfType(ApnTypes type) const;
    void skip(const char* step, const char* missingTypes);
    /// Checks how a step ended that was to end in one of these ways, and keeps its key.
    void finish(const char* step, const ApnEntry* entry, const Outcomes& outcomes, Key key);
    void updateTypes();
    void release();
    void checkModem(const char* step, const ModemTable& expected);

    const Session& session;
    const Operator& served;
    Verifier verifier;
    Util util;
    ModemTable table;  ///< what the modem held after the last step
    std::vector<Key> keys;
    ProvisioningReport report;
};

}  // namespace kiv::kivctl

#endif
