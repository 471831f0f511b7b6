#ifndef KIVR_SRC_PROFILEGLANCE_H
#define KIVR_SRC_PROFILEGLANCE_H

#include <cstdint>

namespace kiv {

/// What a filter demands of a profile's summary, which is ModemProfile::summary. Most profiles fail
/// it, so that a search need not read them. It only ever says no where ModemProfile::match does;
/// where it says maybe, match decides.
///
/// A summary has bits for some traits, most of them "has this setting", and a hash of the APN name
/// above them.
class ProfileGlance {
public:
    static constexpr uint64_t kIs3gpp = 1;
    static constexpr uint64_t kIs3gpp2 = 2;
    static constexpr uint64_t kHasApnName = 4;
    static constexpr uint64_t kHasApnTypesMask = 8;
    static constexpr int kFirstPlainBit = 8;       ///< of the settings of both technologies
    static constexpr int kFirst3gppPlainBit = 16;  ///< of those of 3GPP
    static constexpr uint64_t kApnNameHash = 0xFFFFFFFF00000000;

    void demandTraits(uint64_t traits) { demand(traits, traits); }
    void demandApnName(uint64_t hash) { demand(kApnNameHash, hash); }

    bool mayMatch(uint64_t summary) const { return (summary & mask) == wanted; }

private:
    void demand(uint64_t bits, uint64_t values) {
        mask |= bits;
        wanted |= values;
    }

    uint64_t mask = 0;
    uint64_t wanted = 0;
};

}  // namespace kiv

#endif
