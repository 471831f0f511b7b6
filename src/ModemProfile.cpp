#include "ModemProfile.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <string_view>

#include "Conversions.h"
#include "ForkedChild.h"
#include "LogWrapper.h"
#include "ModemProfileSettings.h"
#include "ValueText.h"

namespace kiv {

namespace {

constexpr size_t kApnNameLimit = WDS_APN_NAME_SIZE_V01 - 1;

/// The form in which a client's APN name is kept and compared.
std::string normalApnName(const std::string& name) {
    return convertToLower(name.substr(0, kApnNameLimit));
}

/// Of the normal form, where a summary has it: FNV-1a, which needs no memory for that form.
uint64_t hashOfApnName(std::string_view name) {
    uint32_t hash = 2166136261U;
    for (const char byte : name.substr(0, kApnNameLimit)) {
        hash = (hash ^ static_cast<unsigned char>(convertToLower(byte))) * 16777619U;
    }
    return uint64_t{hash} << 32;
}

}  // namespace

struct ModemProfile::PlainSettings {
    static constexpr auto all =
        std::make_tuple(setting(&ModemProfile::userName, &ProfileParams::userName),
                        setting(&ModemProfile::password, &ProfileParams::password),
                        setting(&ModemProfile::authType, &ProfileParams::authType),
                        setting(&ModemProfile::apnClass, &ProfileParams::apnClass),
                        setting(&ModemProfile::isClatEnabled, &ProfileParams::isClatEnabled));
};

ModemProfile::ModemProfile(TechType techTypeValue, const ProfileParams& params)
    : techType(techTypeValue) {
    copySettings(*this, PlainSettings::all, params);
    if (params.hasApnName()) {
        apnName = normalApnName(params.getApnName());
    }
    if (params.hasApnTypesMask()) {
        apnTypesMask = convertToRavApnTypeMask(params.getApnTypesMask());
    }
}

ModemProfile::ModemProfile(TechType techTypeValue, int profileIdValue,
                           const wds_get_profile_settings_resp_msg_v01& response)
    : techType(techTypeValue), profileId(profileIdValue) {
    const wds_profile_settings_type_v01& settings = response.settings;
    readMember(apnTypesMask, settings.apn_type_mask_valid, settings.apn_type_mask);
    readMember(isClatEnabled, settings.clat_enabled_valid, settings.clat_enabled);
    isPersistent = response.persistent_valid != 0 && response.persistent != 0;
}

ModemProfile::~ModemProfile() {
    KIV_LOG(DEBUG, "~ModemProfile()");
    for (const ExpirationListener& listener : expirationListeners) {
        if (expired(listener) || isForkedChild()) {
            continue;
        }
        // Calling an empty callback throws, which would end the process here.
        if (!listener.first) {
            KIV_LOG(ERROR, "ModemProfile: skipping empty expiration listener");
            continue;
        }
        KIV_LOG(DEBUG, "invoke callback");
        try {
            listener.first();
        } catch (const std::bad_alloc&) {
            KIV_LOG(ERROR, "ModemProfile: an expiration listener is out of memory");
        }
    }
}

void ModemProfile::registerExpirationListener(std::function<void()> callback,
                                              std::weak_ptr<IProfileKey> key) {
    expirationListeners.emplace_back(std::move(callback), std::move(key));
}

void ModemProfile::clearExpiredListeners() { expirationListeners.remove_if(expired); }

void ModemProfile::incRefCount() {
    if (refCount == std::numeric_limits<int32_t>::max()) {
        KIV_LOG(FATAL, "ModemProfile: reference count overflow");
        std::abort();
    }
    ++refCount;
}

void ModemProfile::decRefCount() {
    if (refCount == std::numeric_limits<int32_t>::min()) {
        KIV_LOG(FATAL, "ModemProfile: reference count overflow");
        std::abort();
    }
    --refCount;
}

ModemProfile::NormalApnName::NormalApnName(const FilterProfileParams& filter) {
    if (filter.apnName) {
        const std::string_view name = std::string_view(*filter.apnName).substr(0, bytes.size());
        std::transform(name.begin(), name.end(), bytes.begin(),
                       [](char byte) { return convertToLower(byte); });
        length = name.size();
    }
}

bool ModemProfile::match(const FilterProfileParams& filter) const {
    return matchNamed(filter, NormalApnName(filter));
}

bool ModemProfile::matchNamed(const FilterProfileParams& filter, const NormalApnName& name) const {
    if (filter.hasFilterByTechType() && filter.getFilterByTechType() != techType) {
        return false;
    }
    if (filter.hasFilterByProfileId() && filter.getFilterByProfileId() != profileId) {
        return false;
    }
    return matchApnName(filter, name) && matchApnTypesMask(filter) &&
           matchSettings(*this, PlainSettings::all, filter);
}

ProfileGlance ModemProfile::glanceFor(const FilterProfileParams& filter) {
    ProfileGlance glance;
    if (filter.hasFilterByTechType()) {
        const bool is3gpp2 = filter.getFilterByTechType() == TechType::Tech3gpp2;
        glance.demandTraits(is3gpp2 ? ProfileGlance::kIs3gpp2 : ProfileGlance::kIs3gpp);
    }
    if (filter.apnName) {
        glance.demandTraits(ProfileGlance::kHasApnName);
        if ((filter.getFilterMatchCriteria() & toMask(FilterMatchType::ApnNameSubset)) == 0) {
            glance.demandApnName(hashOfApnName(*filter.apnName));
        }
    }
    if (filter.apnTypesMask) {
        glance.demandTraits(ProfileGlance::kHasApnTypesMask);
    }
    const auto asked = [&](const auto& one) { return (filter.*one.param).has_value(); };
    glance.demandTraits(settingBits(PlainSettings::all, asked) << ProfileGlance::kFirstPlainBit);
    Modem3gppProfile::demandOf(filter, glance);
    return glance;
}

uint64_t ModemProfile::summary() const {
    const bool is3gpp2 = techType == TechType::Tech3gpp2;
    uint64_t bits = is3gpp2 ? ProfileGlance::kIs3gpp2 : ProfileGlance::kIs3gpp;
    if (apnName) {
        bits |= ProfileGlance::kHasApnName | hashOfApnName(*apnName);
    }
    if (apnTypesMask) {
        bits |= ProfileGlance::kHasApnTypesMask;
    }
    const auto present = [this](const auto& one) { return (this->*one.field).has_value(); };
    return bits | settingBits(PlainSettings::all, present) << ProfileGlance::kFirstPlainBit;
}

bool ModemProfile::matchApnName(const FilterProfileParams& filter,
                                const NormalApnName& name) const {
    if (!filter.hasApnName()) {
        return true;
    }
    if (!apnName) {
        return false;
    }
    if ((filter.getFilterMatchCriteria() & toMask(FilterMatchType::ApnNameSubset)) == 0) {
        return *apnName == name.text();
    }
    return apnName->find(name.text()) != std::string::npos;
}

bool ModemProfile::matchApnTypesMask(const FilterProfileParams& filter) const {
    if (!filter.hasApnTypesMask()) {
        return true;
    }
    if (!apnTypesMask) {
        return false;
    }
    if ((filter.getFilterMatchCriteria() & toMask(FilterMatchType::ApnTypeBitmaskSubset)) != 0) {
        return matchSubsetApnTypesMask(filter.getApnTypesMask());
    }
    return matchExactApnTypesMask(filter.getApnTypesMask());
}

bool ModemProfile::matchSubsetApnTypesMask(uint32_t mask) const {
    const uint64_t wanted = convertToRavApnTypeMask(mask);
    return (valueOf(apnTypesMask) & wanted) == wanted;
}

bool ModemProfile::matchExactApnTypesMask(uint32_t mask) const {
    return valueOf(apnTypesMask) == convertToRavApnTypeMask(mask);
}

void ModemProfile::updateDiffParameters(const ModifyProfileParams& modification, ProfileParams& out,
                                        bool& changed) const {
    if (modification.hasApnName() && apnName != normalApnName(modification.getApnName())) {
        // Meant: compared as cut, handed on whole. The profile that is built from out cuts it.
        out.setApnName(convertToLower(modification.getApnName()));
        changed = true;
    }
    // Compared as the client's bits: those that only the modem knows don't make a difference.
    if (modification.hasApnTypesMask() &&
        (!apnTypesMask ||
         convertToCommonApnTypeMask(*apnTypesMask) != modification.getApnTypesMask())) {
        out.setApnTypesMask(modification.getApnTypesMask());
        changed = true;
    }
    diffSettings(*this, PlainSettings::all, modification, out, changed);
}

void ModemProfile::apply(std::shared_ptr<ModemProfile> other) {
    if (!other) {
        return;
    }
    if (other->apnName) {
        apnName = normalApnName(*other->apnName);
    }
    mergeField(apnTypesMask, other->apnTypesMask);
    mergeField(commonIPType, other->commonIPType);
    mergeSettings(*this, PlainSettings::all, *other);
}

void ModemProfile::updateGetParameters(ProfileParams& out) const {
    mergeField(out.apnName, apnName);
    if (apnTypesMask) {
        out.setApnTypesMask(convertToCommonApnTypeMask(*apnTypesMask));
    }
    reportSettings(*this, PlainSettings::all, out);
}

void ModemProfile::updateAddParameters(wds_create_profile_req_msg_v01& request) const {
    std::memset(&request, 0, sizeof(request));  // Padding included: the record is sent as it is.
    request.persistent_valid = 1;
    request.persistent = isPersistent;
    writeCommonSettings(request.settings);
}

void ModemProfile::updateModifyParameters(wds_modify_profile_settings_req_msg_v01& request) const {
    std::memset(&request, 0, sizeof(request));
    request.profile = constructProfileIdentifier();
    writeCommonSettings(request.settings);
}

void ModemProfile::writeCommonSettings(wds_profile_settings_type_v01& settings) const {
    writeMember(settings.apn_type_mask_valid, settings.apn_type_mask, apnTypesMask);
    writeMember(settings.clat_enabled_valid, settings.clat_enabled, isClatEnabled);
}

wds_profile_identifier_type_v01 ModemProfile::constructProfileIdentifier() const {
    return convertToProfileIdentifier(techType, profileId);
}

std::string ModemProfile::dump() const {
    std::string text = emptyLine();
    text += "TechType=";
    appendText(text, techType);
    text.append(",ProfileId=").append(std::to_string(profileId)).append(",");
    appendSetting(text, "ApnName=", apnName);
    appendSetting(text, "UserName=", userName);
    appendSetting(text, "Password=", password);
    appendSetting(text, "AuthType=", authType);
    appendSetting(text, "CommonIPType=", commonIPType);
    appendSetting(text, "ApnTypesMask=", apnTypesMask);
    appendSetting(text, "ApnClass=", apnClass);
    // Meant: flags of a modem profile print as 0 and 1, those of a ProfileParams as words.
    appendSetting<int>(text, "IsClatEnabled=", isClatEnabled);
    return text;
}

}  // namespace kiv
