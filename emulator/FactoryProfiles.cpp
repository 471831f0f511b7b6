#include "StateFile.h"
#include "WdsService.h"

namespace kiv::emulator {
namespace {

/// An empty APN name leaves the choice to the network.
constexpr char kAsShipped[] = R"({"format": "kivr modem state", "version": 1, "tables": {
    "3gpp": {"capacity": 255, "profiles": [
        {"index": 1, "persistent": true, "settings": {
            "apn_type_mask": 1, "profile_name": "default", "apn_name": "", "pdp_type": 3}},
        {"index": 2, "persistent": true, "settings": {
            "apn_type_mask": 2, "profile_name": "ims", "apn_name": "ims", "pdp_type": 3,
            "apn_class": 1}}]},
    "3gpp2": {"capacity": 255, "profiles": [
        {"index": 0, "persistent": true, "settings": {
            "apn_type_mask": 1, "apn_string_3gpp2": "", "pdn_type_3gpp2": 2}}]}}})";

}  // namespace

void WdsService::installFactoryProfiles() {
    static const ProfileTables shipped = parseState("profiles as shipped", kAsShipped);
    for (const ProfileTable* from : {&shipped.table3gpp, &shipped.table3gpp2}) {
        ProfileTable& to = *tables.find(from->technology());
        const bool wasEmpty = to.all().empty();
        for (const auto& [index, profile] : from->all()) {
            if (wasEmpty) {
                to.create(profile.settings, profile.persistent);
            }
        }
    }
}

}  // namespace kiv::emulator
