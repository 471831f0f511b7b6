#include "ProfileParams.h"

#include <ostream>

#include "AddProfileParams.h"
#include "FilterProfileParams.h"
#include "ValueText.h"

namespace kiv {

std::ostream& operator<<(std::ostream& out, ApnTypes mask) { return out << valueText(mask); }

std::ostream& operator<<(std::ostream& out, FilterMatchType mask) { return out << valueText(mask); }

ProfileParams::~ProfileParams() = default;

std::string ProfileParams::dump() const {
    std::optional<ApnTypes> apnTypes;
    if (apnTypesMask) {
        apnTypes = static_cast<ApnTypes>(*apnTypesMask);
    }
    std::string text = emptyLine();
    // This order, which is not that of the fields, is meant.
    appendSetting(text, "ApnName=", apnName);
    appendSetting(text, "UserName=", userName);
    appendSetting(text, "Password=", password);
    appendSetting(text, "AuthType=", authType);
    appendSetting(text, "HomeIPType=", homeIPType);
    appendSetting(text, "RoamIPType=", roamIPType);
    appendSetting(text, "ApnTypesMask=", apnTypes);
    appendSetting(text, "ApnClass=", apnClass);
    appendSetting(text, "IsClatEnabled=", isClatEnabled);
    appendSetting(text, "MaxPdnsConnPerBlock=", maxPdnsConnPerBlock);
    appendSetting(text, "MaxPdnConnTimer=", maxPdnConnTimer);
    appendSetting(text, "PdnReqWaitInterval=", pdnReqWaitInterval);
    appendSetting(text, "IsApnDisabled=", isApnDisabled);
    appendSetting(text, "IsEmergencySupported=", isEmergencySupported);
    appendSetting(text, "IsKivProfile=", isKivProfile);
    appendSetting(text, "IsIAProfile=", isIAProfile);
    return text;
}

AddProfileParams::AddProfileParams(bool isPersistentValue, TechType techTypeValue,
                                   bool isIAProfileValue)
    : AddProfileParams(ProfileParams(), isPersistentValue, techTypeValue, isIAProfileValue) {}

AddProfileParams::AddProfileParams(const ProfileParams& params, bool isPersistentValue,
                                   TechType techTypeValue, bool isIAProfileValue)
    : ProfileParams(params), isPersistent(isPersistentValue), techType(techTypeValue) {
    isIAProfile = isIAProfileValue;
}

std::string AddProfileParams::dump() const {
    return valueText(techType) + " persist=" + (isPersistent ? "true" : "false") + ": " +
           ProfileParams::dump();
}

std::string FilterProfileParams::dump() const {
    std::string text = valueText(static_cast<FilterMatchType>(matchCriteria)) + ": ";
    appendSetting(text, "tech=", filterByTechType);
    appendSetting(text, "id=", filterByProfileId);
    return text + ProfileParams::dump();
}

}  // namespace kiv
