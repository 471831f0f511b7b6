#include "ModemProfile.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>

#include "Conversions.h"
#include "LogWrapper.h"
#include "ModemProfileSettings.h"
#include "ValueText.h"

namespace kiv {

namespace {

constexpr size_t kApnNameLimit = WDS_APN_NAME_SIZE_V01 - 1;

/// The part of a client's APN name that counts.
std::string_view cutApnName(const std::string& name) {
    return std::string_view(name).substr(0, kApnNameLimit);
}

/// The normal form of a client's APN name, in which profiles keep theirs.
std::string normalApnName(const std::string& name) {
    return convertToLower(std::string(cutApnName(name)));
}

}  // namespace

struct ModemProfile::PlainSettings {
    static constexpr auto all =
        std::make_tuple(std::pair(&ModemProfile::userName, &ProfileParams::userName),
                        std::pair(&ModemProfile::password, &ProfileParams::password),
                        std::pair(&ModemProfile::authType, &ProfileParams::authType),
                        std::pair(&ModemProfile::apnClass, &ProfileParams::apnClass),
                        std::pair(&ModemProfile::isClatEnabled, &ProfileParams::isClatEnabled));
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
        if (expired(listener)) {
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

void ModemProfile::changeRefCount(int by) {
    if (__builtin_add_overflow(refCount, by, &refCount)) {
        KIV_LOG(FATAL, "ModemProfile: reference count overflow");
        std::abort();
    }
}

bool ModemProfile::match(const FilterProfileParams& filter) const {
    if (filter.hasFilterByTechType() && filter.getFilterByTechType() != techType) {
        return false;
    }
    if (filter.hasFilterByProfileId() && filter.getFilterByProfileId() != profileId) {
        return false;
    }
    return matchApnName(filter) && matchApnTypesMask(filter) &&
           matchSettings(*this, PlainSettings::all, filter);
}

bool ModemProfile::matchApnName(const FilterProfileParams& filter) const {
    if (!filter.apnName) {
        return true;
    }
    if (!apnName) {
        return false;
    }
    // Lowered byte by byte: this is done for every profile in the cache.
    const std::string_view wanted = cutApnName(*filter.apnName);
    const auto fits = [](char kept, char asked) { return kept == convertToLower(asked); };
    if ((filter.getFilterMatchCriteria() & toMask(FilterMatchType::ApnNameSubset)) == 0) {
        return std::equal(apnName->begin(), apnName->end(), wanted.begin(), wanted.end(), fits);
    }
    return wanted.empty() || std::search(apnName->begin(), apnName->end(), wanted.begin(),
                                         wanted.end(), fits) != apnName->end();
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
    return (getApnTypesMask() & wanted) == wanted;
}

bool ModemProfile::matchExactApnTypesMask(uint32_t mask) const {
    return getApnTypesMask() == convertToRavApnTypeMask(mask);
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

void ModemProfile::takeTexts(ModemProfile& other) noexcept {
    for (const auto text :
         {&ModemProfile::apnName, &ModemProfile::userName, &ModemProfile::password}) {
        if (other.*text) {
            this->*text = std::move(other.*text);
            (other.*text).reset();
        }
    }
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
