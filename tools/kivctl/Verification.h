#ifndef TOOLS_KIVCTL_VERIFICATION_H
#define TOOLS_KIVCTL_VERIFICATION_H

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "IProfileKey.h"
#include "Manager.h"
#include "SettingList.h"

namespace kiv::kivctl {

/// A profile as the library reports it.
struct Held {
    TechType techType;
    int id;
    ProfileParams params;

    bool isSame(const Held& other) const { return techType == other.techType && id == other.id; }
};

/// All profiles that the library reports, by technology and id.
using Snapshot = std::vector<Held>;

Snapshot readLibrary(Manager& manager = Manager::getInstance());

/// Reads the library's cache without a wait for each profile: the cache's text is there at once,
/// and only a profile whose line has not been seen before is asked for.
class CacheReader {
public:
    Snapshot read();

private:
    std::unordered_map<std::string, Held> known;  ///< by line
};

/// What a second reader of the modem reads, whose cache is not the library's. For a moment when
/// keys must live on: a refresh would take their profiles from them.
Snapshot readAnew(int bindValue);

/// Null if there is none.
const Held* find(const Snapshot& snapshot, TechType techType, int id);

/// "3GPP 5".
std::string profileText(TechType techType, int id);

/// Whether two values of a setting are equal. The library compares APN names without case.
bool areEqual(const Setting& setting, const Json& a, const Json& b);

/// Something that is not as it should be.
struct Mismatch {
    std::string step;
    std::string check;    ///< what was compared; see docs/kivctl.md
    std::string profile;  ///< empty if it is about no one profile
    std::string setting;
    Json expected;
    Json found;
    bool isSecret = false;
};

/// Collects the mismatches of one operator.
///
/// Threads: one. Blocking: never; it compares what others have read.
class Verifier {
public:
    /// The step that is checked from now on.
    void begin(const std::string& name) { step = name; }

    /// Setting by setting.
    void compare(const char* check, const Snapshot& expected, const Snapshot& actual);
    /// One setting of a profile.
    void compare(const char* check, const std::string& profile, const Setting& setting,
                 const Json& expected, const Json& found);
    void add(const char* check, const std::string& profile, const char* setting,
             const Json& expected, const Json& found);

    const std::vector<Mismatch>& mismatches() const { return found; }

private:
    std::string step;
    std::vector<Mismatch> found;
};

}  // namespace kiv::kivctl

#endif
