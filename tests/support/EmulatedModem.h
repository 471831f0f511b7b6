#ifndef TESTS_SUPPORT_EMULATEDMODEM_H
#define TESTS_SUPPORT_EMULATEDMODEM_H

#include <chrono>
#include <cstring>
#include <optional>
#include <string>

#include "ModemEmulator.h"

namespace kiv::test {

/// Long enough for any machine; a test that waits for so long has failed.
inline constexpr std::chrono::seconds kPatience{60};

inline emulator::ModemEmulator& modem() { return emulator::ModemEmulator::getInstance(); }

/// The settings of a 3GPP profile as another party would write them.
inline wds_profile_settings_type_v01 settings3gpp(
    const std::string& apnName, std::optional<wds_pdp_type_enum_v01> pdpType = std::nullopt) {
    wds_profile_settings_type_v01 settings{};
    settings.apn_name_valid = 1;
    apnName.copy(settings.apn_name, sizeof(settings.apn_name) - 1);
    if (pdpType) {
        settings.pdp_type_valid = 1;
        settings.pdp_type = *pdpType;
    }
    return settings;
}

/// How many requests of a kind the modem took.
inline size_t requestCount(unsigned messageId) {
    size_t count = 0;
    for (const emulator::Request& request : modem().requests()) {
        count += request.messageId == messageId ? 1 : 0;
    }
    return count;
}

/// The modem refuses the nth such request from now on.
inline void refuse(unsigned messageId, unsigned nth = 1) {
    emulator::Fault fault;
    fault.messageId = messageId;
    fault.nth = nth;
    fault.error = WDS_ERR_INTERNAL_V01;
    modem().addFault(fault);
}

}  // namespace kiv::test

#endif
