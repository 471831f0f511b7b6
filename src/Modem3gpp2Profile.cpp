#include "Conversions.h"
#include "ModemProfile.h"
#include "ModemProfileSettings.h"

namespace kiv {

Modem3gpp2Profile::Modem3gpp2Profile(const ProfileParams& params)
    : ModemProfile(TechType::Tech3gpp2, params) {
    if (params.hasHomeIPType()) {
        commonIPType = params.getHomeIPType();
    }
}

Modem3gpp2Profile::Modem3gpp2Profile(int profileIdValue,
                                     const wds_get_profile_settings_resp_msg_v01& response)
    : ModemProfile(TechType::Tech3gpp2, profileIdValue, response) {
    // Meant: the password and the PDN-level members are written but never read.
    const wds_profile_settings_type_v01& s = response.settings;
    readMember(commonIPType, s.pdn_type_3gpp2_valid, s.pdn_type_3gpp2, convertPdnType);
    readText(apnName, s.apn_string_3gpp2_valid, s.apn_string_3gpp2);
    if (apnName) {
        apnName = convertToLower(*apnName);
    }
    readMember(apnClass, s.apn_class_3gpp2_valid, s.apn_class_3gpp2);
    readMember(authType, s.auth_protocol_3gpp2_valid, s.auth_protocol_3gpp2, convertToAuthType);
    readText(userName, s.user_id_3gpp2_valid, s.user_id_3gpp2);
}

bool Modem3gpp2Profile::match(const FilterProfileParams& filter) const {
    if (!ModemProfile::match(filter)) {
        return false;
    }
    // Meant: an absent type counts as UNKNOWN, the empty set, so that a superset filter takes it.
    if (filter.hasHomeIPType() &&
        !matchIPType(filter.getHomeIPType(), getCommonIPType(), filter.getFilterMatchCriteria(),
                     FilterMatchType::HomeIPSubset, FilterMatchType::HomeIPSuperset)) {
        return false;
    }
    const bool asksFor3gppOnly = filter.hasFilterByIsIAProfile() ||
                                 filter.hasFilterByIsKivProfile() || filter.hasRoamIPType() ||
                                 filter.hasMaxPdnsConnPerBlock() || filter.hasMaxPdnConnTimer() ||
                                 filter.hasPdnReqWaitInterval() || filter.hasIsApnDisabled() ||
                                 filter.hasIsEmergencySupported();
    return !asksFor3gppOnly;
}

std::shared_ptr<ModemProfile> Modem3gpp2Profile::diff(
    const ModifyProfileParams& modification) const {
    ProfileParams out;
    bool changed = false;
    updateDiffParameters(modification, out, changed);
    if (modification.hasHomeIPType() && commonIPType != modification.getHomeIPType()) {
        out.setHomeIPType(modification.getHomeIPType());
        changed = true;
    }
    return changed ? std::make_shared<Modem3gpp2Profile>(out) : nullptr;
}

ProfileParams Modem3gpp2Profile::get() const {
    ProfileParams params;
    updateGetParameters(params);
    if (commonIPType) {
        params.setHomeIPType(*commonIPType);
    }
    return params;
}

wds_create_profile_req_msg_v01 Modem3gpp2Profile::constructAddRequest() const {
    wds_create_profile_req_msg_v01 request;
    updateAddParameters(request);
    request.profile_type = WDS_PROFILE_TYPE_3GPP2_V01;
    writeSettings(request.settings);
    return request;
}

wds_modify_profile_settings_req_msg_v01 Modem3gpp2Profile::constructModifyRequest() const {
    wds_modify_profile_settings_req_msg_v01 request;
    updateModifyParameters(request);
    writeSettings(request.settings);
    return request;
}

void Modem3gpp2Profile::writeSettings(wds_profile_settings_type_v01& s) const {
    writeText(s.apn_string_3gpp2_valid, s.apn_string_3gpp2, apnName);
    writeMember(s.pdn_type_3gpp2_valid, s.pdn_type_3gpp2, commonIPType, convertToRavProfilePdnType);
    writeMember(s.auth_protocol_3gpp2_valid, s.auth_protocol_3gpp2, authType,
                convertToRavAuthProtocol);
    writeMember(s.pdn_level_auth_protocol_3gpp2_valid, s.pdn_level_auth_protocol_3gpp2, authType,
                convertToRavPdnLevelAuthProtocol);
    writeMember(s.apn_class_3gpp2_valid, s.apn_class_3gpp2, apnClass);
    writeText(s.user_id_3gpp2_valid, s.user_id_3gpp2, userName);
    writeText(s.pdn_level_user_id_3gpp2_valid, s.pdn_level_user_id_3gpp2, userName);
    writeText(s.password_3gpp2_valid, s.password_3gpp2, password);
    writeText(s.pdn_level_password_3gpp2_valid, s.pdn_level_password_3gpp2, password);
}

}  // namespace kiv
