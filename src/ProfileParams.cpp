#include "ProfileParams.h"

#include <ostream>

#include "AddProfileParams.h"
#include "FilterProfileParams.h"
#include "ModifyProfileParams.h"
#include "ValueText.h"

namespace kiv {

std::ostream& operator<<(std::ostream& out, ApnTypes mask) { return out << valueText(mask); }

std::ostream& operator<<(std::ostream& out, FilterMatchType mask) { return out << valueText(mask); }

ProfileParams::~ProfileParams() = default;

std::string ProfileParams::dump() const {
    std::string text = emptyLine();
    appendText(text, *this);
    return text;
}

void appendText(std::string& text, const ProfileParams& params) {
    std::optional<ApnTypes> apnTypes;
    if (params.apnTypesMask) {
        apnTypes = static_cast<ApnTypes>(*params.apnTypesMask);
    }
    // This order, which is not that of the fields, is meant.
    appendSetting(text, "ApnName=", params.apnName);
    appendSetting(text, "UserName=", params.userName);
    appendSetting(text, "Password=", params.password);
    appendSetting(text, "AuthType=", params.authType);
    appendSetting(text, "HomeIPType=", params.homeIPType);
    appendSetting(text, "RoamIPType=", params.roamIPType);
    appendSetting(text, "ApnTypesMask=", apnTypes);
    appendSetting(text, "ApnClass=", params.apnClass);
    appendSetting(text, "IsClatEnabled=", params.isClatEnabled);
    appendSetting(text, "MaxPdnsConnPerBlock=", params.maxPdnsConnPerBlock);
    appendSetting(text, "MaxPdnConnTimer=", params.maxPdnConnTimer);
    appendSetting(text, "PdnReqWaitInterval=", params.pdnReqWaitInterval);
    appendSetting(text, "IsApnDisabled=", params.isApnDisabled);
    appendSetting(text, "IsEmergencySupported=", params.isEmergencySupported);
    appendSetting(text, "IsKivProfile=", params.isKivProfile);
    appendSetting(text, "IsIAProfile=", params.isIAProfile);
}

AddProfileParams::AddProfileParams(bool isPersistentValue, TechType techTypeValue,
                                   bool isIAProfileValue)
    : AddProfileParams(ProfileParams(), isPersistentValue, techTypeValue, isIAProfileValue) {}

AddProfileParams::AddProfileParams(const ProfileParams& params, bool isPersistentValue,
                                   TechType techTypeValue, bool isIAProfileValue)
    : ProfileParams(params), isPersistent(isPersistentValue), techType(techTypeValue) {
    isIAProfile = isIAProfileValue;
}

AddProfileParams::~AddProfileParams() = default;

std::string AddProfileParams::dump() const {
    std::string text = emptyLine();
    appendText(text, techType);
    text += isPersistent ? " persist=true: " : " persist=false: ";
    appendText(text, *this);
    return text;
}

FilterProfileParams::FilterProfileParams() = default;

FilterProfileParams::FilterProfileParams(const ProfileParams& params) : ProfileParams(params) {}

FilterProfileParams::~FilterProfileParams() = default;

std::string FilterProfileParams::dump() const {
    std::string text = emptyLine();
    appendText(text, static_cast<FilterMatchType>(matchCriteria));
    text += ": ";
    appendSetting(text, "tech=", filterByTechType);
    appendSetting(text, "id=", filterByProfileId);
    appendText(text, *this);
    return text;
}

ModifyProfileParams::ModifyProfileParams() = default;

ModifyProfileParams::ModifyProfileParams(const ProfileParams& params) : ProfileParams(params) {}

ModifyProfileParams::~ModifyProfileParams() = default;

}  // namespace kiv
