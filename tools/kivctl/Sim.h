#ifndef TOOLS_KIVCTL_SIM_H
#define TOOLS_KIVCTL_SIM_H

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "ApnFile.h"

namespace kiv::kivctl {

/// What a SIM says of itself. A plain SIM of an operator has a PLMN alone.
struct Sim {
    std::string plmn;  ///< empty for a SIM that is known by its carrier id alone
    std::string spn;
    std::string imsi;
    std::string gid;
    std::string iccid;
    int carrierId = -1;  ///< -1 if it is not known

    /// As parseSim reads it.
    std::string text() const;
};

/// Reads PLMN[,spn=..][,imsi=..][,gid=..][,iccid=..][,carrier-id=N]; with a carrier id the PLMN may
/// be absent. A comma that no known name follows belongs to the value before it. Throws Failure.
Sim parseSim(std::string_view text);

/// What an entry is to a SIM.
enum class Verdict {
    Serves,
    Disabled,     ///< carrier_enabled is false
    LeftOut,      ///< can't be read
    OtherMvno,    ///< only for SIMs of an MVNO that this one is not of
    Represented,  ///< the host's own, and the MVNO has entries
};

struct Candidate {
    const ApnEntry* entry;
    Verdict verdict;
    bool byCarrierId = false;
};

/// All entries of the SIM's PLMN and carrier id, those that bear its carrier id first, else in the
/// order of the file.
std::vector<Candidate> candidatesFor(const ApnFile& file, const Sim& sim);

/// Whether the entry's MVNO is the SIM's.
bool isOfMvno(const ApnEntry& entry, const Sim& sim);

/// Why a candidate serves the SIM, or why it doesn't.
std::string reasonOf(const Candidate& candidate, const Sim& sim);

/// A SIM for each operator of the file: the plain SIM of each PLMN, one of each MVNO, and one of
/// each carrier id that no PLMN goes with; in the order of the file.
std::vector<Sim> simsOf(const ApnFile& file);

/// The SIMs that the file has entries for, where it has none for this one: those of its PLMN, and
/// of the PLMNs that its carrier ids are served in, too.
std::vector<std::string> alternativesTo(const ApnFile& file, const Sim& sim);

/// What a step of the provisioning asks an entry for: the first entry of the first of these types
/// that there is one of.
struct Need {
    std::vector<ApnTypes> types;
    bool isLte = false;  ///< LTE or NR, else any 3GPP technology

    bool isMet(const ApnEntry& entry, ApnTypes type) const {
        return entry.isOfType(type) && isAdmitted(entry);
    }
    bool isAdmitted(const ApnEntry& entry) const {
        return isLte ? entry.admitsLte : entry.admits3gpp;
    }
};

/// The entry for a step, and why it; the entry is null if there is none.
struct Choice {
    const ApnEntry* entry = nullptr;
    std::string reason;
};
Choice choose(const std::vector<Candidate>& candidates, const Need& need, const Sim& sim);

/// Why the step does not take the candidate, or that it does.
std::string explain(const Candidate& candidate, const Choice& choice, const Need& need,
                    const Sim& sim);

}  // namespace kiv::kivctl

#endif
