#include "Conversions.h"
#include "ModemProfile.h"
#include "ModemProfileSettings.h"
#include "ValueText.h"

namespace kiv {

namespace {

/// "None" leaves the field absent.
void readRoamingType(std::optional<IPType>& field, uint8_t valid,
                     wds_common_pdp_type_enum_v01 member) {
    if (member != WDS_COMMON_PDP_TYPE_NONE_V01) {
        readMember(field, valid, member, convertPdpType);
    }
}

}  // namespace

struct Modem3gppProfile::PlainSettings {
    static constexpr auto all = std::make_tuple(
        std::pair(&Modem3gppProfile::maxPdnsConnPerBlock, &ProfileParams::maxPdnsConnPerBlock),
        std::pair(&Modem3gppProfile::maxPdnConnTimer, &ProfileParams::maxPdnConnTimer),
        std::pair(&Modem3gppProfile::pdnReqWaitInterval, &ProfileParams::pdnReqWaitInterval),
        std::pair(&Modem3gppProfile::isApnDisabled, &ProfileParams::isApnDisabled),
        std::pair(&Modem3gppProfile::isEmergencySupported, &ProfileParams::isEmergencySupported));
};

Modem3gppProfile::Modem3gppProfile(const ProfileParams& params)
    : ModemProfile(TechType::Tech3gpp, params) {
    copySettings(*this, PlainSettings::all, params);
    std::optional<IPType> home;
    std::optional<IPType> roam;
    std::optional<IPType> overrideHome;
    getNewIPTypes(params, home, roam, overrideHome);
    commonIPType = home;
    lteRoamIPType = roam;
    umtsRoamIPType = roam;
    overrideHomeIPType = overrideHome;
}

Modem3gppProfile::Modem3gppProfile(int profileIdValue,
                                   const wds_get_profile_settings_resp_msg_v01& response)
    : ModemProfile(TechType::Tech3gpp, profileIdValue, response) {
    const wds_profile_settings_type_v01& s = response.settings;
    readText(profileName, s.profile_name_valid, s.profile_name);
    readMember(commonIPType, s.pdp_type_valid, s.pdp_type, convertPdpType);
    readMember(overrideHomeIPType, s.override_home_pdp_type_valid, s.override_home_pdp_type,
               convertPdpType);
    readRoamingType(lteRoamIPType, s.lte_roaming_pdp_type_valid, s.lte_roaming_pdp_type);
    readRoamingType(umtsRoamIPType, s.umts_roaming_pdp_type_valid, s.umts_roaming_pdp_type);
    readText(apnName, s.apn_name_valid, s.apn_name);
    if (apnName) {
        apnName = convertToLower(*apnName);
    }
    readMember(apnClass, s.apn_class_valid, s.apn_class);
    readMember(isEmergencySupported, s.support_emergency_calls_valid, s.support_emergency_calls);
    readMember(authType, s.auth_preference_valid, s.auth_preference, convertToAuthType);
    readMember(maxPdnsConnPerBlock, s.max_pdn_conn_per_block_valid, s.max_pdn_conn_per_block);
    readMember(maxPdnConnTimer, s.max_pdn_conn_timer_valid, s.max_pdn_conn_timer);
    readMember(pdnReqWaitInterval, s.pdn_req_wait_interval_valid, s.pdn_req_wait_interval);
    readMember(isApnDisabled, s.apn_disabled_valid, s.apn_disabled);
    readText(userName, s.user_name_valid, s.user_name);
    readText(password, s.password_valid, s.password);
}

std::optional<IPType> Modem3gppProfile::clientHomeIPType() const {
    const bool overridden = getOverrideHomeIPType() != IPType::UNKNOWN;
    return overridden ? overrideHomeIPType : commonIPType;
}

void Modem3gppProfile::getNewIPTypes(const ProfileParams& params, std::optional<IPType>& home,
                                     std::optional<IPType>& roam,
                                     std::optional<IPType>& overrideHome) const {
    home = params.hasHomeIPType() ? params.getHomeIPType() : clientHomeIPType();
    if (params.hasRoamIPType()) {
        roam = params.getRoamIPType();
    } else if (lteRoamIPType == umtsRoamIPType) {
        roam = lteRoamIPType;
    }
    if (!home || !roam) {
        return;
    }
    if (*home != *roam) {
        overrideHome = home;
        home = IPType::V4V6;
    } else if (overrideHomeIPType) {
        // An override that no longer applies can't be removed; UNKNOWN takes it out of effect.
        overrideHome = IPType::UNKNOWN;
    }
}

bool Modem3gppProfile::isIAProfile() const { return profileName == kKivIAProfileName; }

bool Modem3gppProfile::isKivProfile() const {
    return isIAProfile() || profileName == kKivProfileName;
}

bool Modem3gppProfile::match(const FilterProfileParams& filter) const {
    // Only one of the two filters counts, the initial-attach one first.
    const bool nameFits =
        filter.hasFilterByIsIAProfile()
            ? filter.getIsIAProfile() == isIAProfile()
            : !filter.hasFilterByIsKivProfile() || filter.getIsKivProfile() == isKivProfile();
    return ModemProfile::match(filter) && nameFits && matchHomeIPType(filter) &&
           matchRoamIPType(filter) && matchSettings(*this, PlainSettings::all, filter);
}

bool Modem3gppProfile::matchHomeIPType(const FilterProfileParams& filter) const {
    if (!filter.hasHomeIPType()) {
        return true;
    }
    const std::optional<IPType> actual = clientHomeIPType();
    return actual && matchIPType(filter.getHomeIPType(), *actual, filter.getFilterMatchCriteria(),
                                 FilterMatchType::HomeIPSubset, FilterMatchType::HomeIPSuperset);
}

bool Modem3gppProfile::matchRoamIPType(const FilterProfileParams& filter) const {
    if (!filter.hasRoamIPType()) {
        return true;
    }
    // Without an LTE type, the type at home also serves when roaming. An absent UMTS type beside
    // an LTE type counts as UNKNOWN.
    std::optional<IPType> actual;
    if (lteRoamIPType) {
        if (getUmtsRoamIPType() == *lteRoamIPType) {
            actual = lteRoamIPType;
        }
    } else if (!umtsRoamIPType) {
        actual = commonIPType;
    }
    return actual && matchIPType(filter.getRoamIPType(), *actual, filter.getFilterMatchCriteria(),
                                 FilterMatchType::RoamIPSubset, FilterMatchType::RoamIPSuperset);
}

std::shared_ptr<ModemProfile> Modem3gppProfile::diff(
    const ModifyProfileParams& modification) const {
    ProfileParams out;
    bool changed = false;
    updateDiffParameters(modification, out, changed);
    diffSettings(*this, PlainSettings::all, modification, out, changed);
    auto difference = std::make_shared<Modem3gppProfile>(out);

    std::optional<IPType> home;
    std::optional<IPType> roam;
    std::optional<IPType> overrideHome;
    getNewIPTypes(modification, home, roam, overrideHome);
    diffField(commonIPType, home, difference->commonIPType, changed);
    diffField(lteRoamIPType, roam, difference->lteRoamIPType, changed);
    diffField(umtsRoamIPType, roam, difference->umtsRoamIPType, changed);
    diffField(overrideHomeIPType, overrideHome, difference->overrideHomeIPType, changed);
    return changed ? difference : nullptr;
}

void Modem3gppProfile::apply(std::shared_ptr<ModemProfile> other) {
    ModemProfile::apply(other);
    const auto other3gpp = std::dynamic_pointer_cast<const Modem3gppProfile>(other);
    if (!other3gpp) {
        return;
    }
    // Meant: the profile name stays.
    mergeField(overrideHomeIPType, other3gpp->overrideHomeIPType);
    mergeField(lteRoamIPType, other3gpp->lteRoamIPType);
    mergeField(umtsRoamIPType, other3gpp->umtsRoamIPType);
    mergeSettings(*this, PlainSettings::all, *other3gpp);
}

ProfileParams Modem3gppProfile::get() const {
    ProfileParams params;
    updateGetParameters(params);
    params.isIAProfile = isIAProfile();
    params.isKivProfile = isKivProfile();
    params.homeIPType = clientHomeIPType();
    if (lteRoamIPType == umtsRoamIPType) {
        params.roamIPType = lteRoamIPType;
    }
    reportSettings(*this, PlainSettings::all, params);
    return params;
}

wds_create_profile_req_msg_v01 Modem3gppProfile::constructAddRequest() const {
    wds_create_profile_req_msg_v01 request;
    updateAddParameters(request);
    request.profile_type = WDS_PROFILE_TYPE_3GPP_V01;
    writeSettings(request.settings);
    return request;
}

wds_modify_profile_settings_req_msg_v01 Modem3gppProfile::constructModifyRequest() const {
    wds_modify_profile_settings_req_msg_v01 request;
    updateModifyParameters(request);
    writeSettings(request.settings);
    return request;
}

void Modem3gppProfile::writeSettings(wds_profile_settings_type_v01& s) const {
    writeText(s.profile_name_valid, s.profile_name, profileName);
    writeText(s.apn_name_valid, s.apn_name, apnName);
    writeMember(s.pdp_type_valid, s.pdp_type, commonIPType, convertToRavPdpType);
    writeMember(s.override_home_pdp_type_valid, s.override_home_pdp_type, overrideHomeIPType,
                convertToRavCommonPdpType);
    writeMember(s.support_emergency_calls_valid, s.support_emergency_calls, isEmergencySupported);
    writeMember(s.lte_roaming_pdp_type_valid, s.lte_roaming_pdp_type, lteRoamIPType,
                convertToRavCommonPdpType);
    writeMember(s.umts_roaming_pdp_type_valid, s.umts_roaming_pdp_type, umtsRoamIPType,
                convertToRavCommonPdpType);
    writeMember(s.max_pdn_conn_per_block_valid, s.max_pdn_conn_per_block, maxPdnsConnPerBlock);
    writeMember(s.max_pdn_conn_timer_valid, s.max_pdn_conn_timer, maxPdnConnTimer);
    writeMember(s.pdn_req_wait_interval_valid, s.pdn_req_wait_interval, pdnReqWaitInterval);
    writeMember(s.apn_disabled_valid, s.apn_disabled, isApnDisabled);
    writeMember(s.auth_preference_valid, s.auth_preference, authType, convertToRavAuthPref);
    writeMember(s.apn_class_valid, s.apn_class, apnClass);
    writeText(s.user_name_valid, s.user_name, userName);
    writeText(s.password_valid, s.password, password);
}

std::string Modem3gppProfile::dump() const {
    std::string text = ModemProfile::dump();
    appendSetting(text, "OverrideHomeIPType=", overrideHomeIPType);
    appendSetting(text, "LteRoamIP=", lteRoamIPType);
    appendSetting(text, "UmtsRoamIP=", umtsRoamIPType);
    appendSetting(text, "MaxPdnsConnPerBlock=", maxPdnsConnPerBlock);
    appendSetting(text, "MaxPdnConnTimer=", maxPdnConnTimer);
    appendSetting(text, "PdnReqWaitInterval=", pdnReqWaitInterval);
    appendSetting<int>(text, "IsApnDisabled=", isApnDisabled);
    appendSetting<int>(text, "IsEmergencySupported=", isEmergencySupported);
    appendSetting(text, "ProfileName=", profileName);
    return text;
}

}  // namespace kiv
