#ifndef KIVR_FILTERPROFILEPARAMS_H
#define KIVR_FILTERPROFILEPARAMS_H

#include <cstdint>
#include <optional>
#include <string>

#include "ProfileParams.h"

namespace kiv {

/// Selects profiles: every setting that is present must be present on the profile and match; one
/// that is absent is not looked at. A plain value, like its base.
///
/// Roaming IP type: where a 3GPP profile's types for LTE and UMTS differ, no type matches. Only
/// where it has neither, the home type that the modem holds serves.
/// Home IP type: where a 3GPP2 profile has none, it counts as UNKNOWN.
///
/// A filter made of what getProfile returned need not match that profile: without
/// ApnTypeBitmaskSubset, APN types that the modem holds and that have no bit in ApnTypes count too.
///
/// A setting marked as 3GPP only, and both filters by library profile, match no 3GPP2 profile,
/// whatever their value.
///
/// Setters and getters follow the rule of ProfileParams.
class KIV_API FilterProfileParams : public ProfileParams {
public:
    /// Selects every profile that could be read.
    FilterProfileParams() = default;
    /// Compares with the settings of params, its two library-profile flags included.
    explicit FilterProfileParams(const ProfileParams& params) : ProfileParams(params) {}

    std::string dump() const override;

    /// Only the profile with this modem profile id: 0 to 255.
    int getFilterByProfileId() const { return get(filterByProfileId); }
    void setFilterByProfileId(int value) { filterByProfileId = value; }
    bool hasFilterByProfileId() const { return filterByProfileId.has_value(); }

    /// Only profiles of this technology.
    TechType getFilterByTechType() const { return get(filterByTechType); }
    void setFilterByTechType(TechType value) { filterByTechType = value; }
    bool hasFilterByTechType() const { return filterByTechType.has_value(); }

    /// Only profiles that the library named, or only others. Not looked at when the filter by
    /// initial-attach profile is present. Read the value with getIsKivProfile.
    void setFilterByIsKivProfile(bool value) { isKivProfile = value; }
    bool hasFilterByIsKivProfile() const { return isKivProfile.has_value(); }

    /// Only the library's initial-attach profiles, or only others. Read the value with
    /// getIsIAProfile.
    void setFilterByIsIAProfile(bool value) { isIAProfile = value; }
    bool hasFilterByIsIAProfile() const { return isIAProfile.has_value(); }

    /// The set of FilterMatchType. add puts bits into it, remove takes them out.
    uint32_t getFilterMatchCriteria() const { return matchCriteria; }
    void addFilterMatchCriteria(uint32_t mask) { matchCriteria |= mask; }
    void removeFilterMatchCriteria(uint32_t mask) { matchCriteria &= ~mask; }
    void addFilterMatchCriteria(FilterMatchType set) { addFilterMatchCriteria(toMask(set)); }
    void removeFilterMatchCriteria(FilterMatchType set) { removeFilterMatchCriteria(toMask(set)); }

private:
    uint32_t matchCriteria = 0;
    std::optional<int> filterByProfileId;
    std::optional<TechType> filterByTechType;
};

}  // namespace kiv

#endif
