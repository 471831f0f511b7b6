#include <algorithm>
#include <string_view>

#include "WdsService.h"

namespace kiv::emulator {
namespace {

template <size_t size>
void setText(char (&member)[size], uint8_t& valid, std::string_view text) {
    std::copy_n(text.begin(), std::min(text.size(), size - 1), member);
    valid = 1;
}

wds_profile_settings_type_v01 describe3gpp(std::string_view name, std::string_view apn,
                                           uint64_t apnTypes) {
    wds_profile_settings_type_v01 settings{};
    setText(settings.profile_name, settings.profile_name_valid, name);
    setText(settings.apn_name, settings.apn_name_valid, apn);
    settings.pdp_type_valid = 1;
    settings.pdp_type = WDS_PDP_TYPE_IPV4V6_V01;
    settings.apn_type_mask_valid = 1;
    settings.apn_type_mask = apnTypes;
    return settings;
}

wds_profile_settings_type_v01 describe3gpp2() {
    wds_profile_settings_type_v01 settings{};
    setText(settings.apn_string_3gpp2, settings.apn_string_3gpp2_valid, "");
    settings.pdn_type_3gpp2_valid = 1;
    settings.pdn_type_3gpp2 = WDS_PROFILE_PDN_TYPE_IPV4V6_V01;
    settings.apn_type_mask_valid = 1;
    settings.apn_type_mask = WDS_APN_TYPE_MASK_DEFAULT_V01;
    return settings;
}

}  // namespace

void WdsService::installFactoryProfiles() {
    constexpr bool kPersistent = true;
    if (tables.table3gpp.all().empty()) {
        // An empty APN name leaves the choice to the network.
        tables.table3gpp.create(describe3gpp("default", "", WDS_APN_TYPE_MASK_DEFAULT_V01),
                                kPersistent);
        auto ims = describe3gpp("ims", "ims", WDS_APN_TYPE_MASK_IMS_V01);
        ims.apn_class_valid = 1;
        ims.apn_class = 1;
        tables.table3gpp.create(ims, kPersistent);
    }
    if (tables.table3gpp2.all().empty()) {
        tables.table3gpp2.create(describe3gpp2(), kPersistent);
    }
}

}  // namespace kiv::emulator
