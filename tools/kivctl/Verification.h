#ifndef TOOLS_KIVCTL_VERIFICATION_H
#define TOOLS_KIVCTL_VERIFICATION_H

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "HeldProfile.h"
#include "IProfileKey.h"

namespace kiv::kivctl {

/// Something that is not as it was asked for.
struct Mismatch {
    std::string plmn;
    std::string step;
    std::string holder;   ///< who holds it otherwise: "modem" or "library"
    std::string profile;  ///< as profileText; empty if it is about no one profile
    std::string setting;
    std::optional<std::string> asked;
    std::optional<std::string> held;
    bool isSecret = false;
};

/// Collects the mismatches of one operator. What the modem holds is read from the emulator's
/// tables, what the library holds through Manager.
class Verifier {
public:
    explicit Verifier(std::string plmn) : plmn(std::move(plmn)) {}

    /// The modem's whole table, profile by profile and setting by setting.
    void checkModem(const std::string& step, const ModemTable& expected, const ModemTable& held);
    /// What the library answers for one key.
    void checkKey(const std::string& step, const ModemTable& expected,
                  const std::shared_ptr<IProfileKey>& key);
    /// All that the library answers.
    void checkLibrary(const std::string& step, const ModemTable& expected);

    void add(const std::string& step, const char* holder, const std::string& profile,
             const Setting& asked, const std::optional<std::string>& held);

    const std::vector<Mismatch>& mismatches() const { return found; }

private:
    void compare(const std::string& step, const char* holder, const std::string& profile,
                 const std::vector<Setting>& asked, const std::vector<Setting>& held);

    std::string plmn;
    std::vector<Mismatch> found;
};

}  // namespace kiv::kivctl

#endif
