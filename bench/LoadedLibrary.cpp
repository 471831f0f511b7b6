#include "LoadedLibrary.h"

#include <android/log.h>

#include <cstdio>
#include <cstdlib>

namespace kiv::bench {

namespace {

constexpr std::chrono::seconds kPatience{60};

[[noreturn]] void fail(const char* what) {
    std::fprintf(stderr, "bench: %s\n", what);
    std::exit(1);
}

template <size_t size>
void setText(unsigned char& valid, char (&member)[size], const std::string& text) {
    valid = 1;
    text.copy(member, size - 1);
}

void createProfiles(emulator::ModemEmulator& modem, wds_profile_type_enum_v01 type,
                    unsigned count) {
    for (unsigned number = 0; number < count; ++number) {
        wds_profile_settings_type_v01 settings{};
        const std::string apn = LoadedLibrary::apnName(number);
        if (type == WDS_PROFILE_TYPE_3GPP_V01) {
            setText(settings.apn_name_valid, settings.apn_name, apn);
            setText(settings.user_name_valid, settings.user_name, "user of " + apn);
            setText(settings.password_valid, settings.password, "password");
            settings.pdp_type_valid = 1;
            settings.pdp_type = WDS_PDP_TYPE_IPV4V6_V01;
        } else {
            setText(settings.apn_string_3gpp2_valid, settings.apn_string_3gpp2, apn);
        }
        settings.apn_type_mask_valid = 1;
        settings.apn_type_mask = 1;
        if (!modem.createProfile(type, settings, true)) {
            fail("the modem's table is full");
        }
    }
}

}  // namespace

void discardLog() {
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    __android_log_set_logger([](const __android_logger_data*, const char*) {});
}

LoadedLibrary::LoadedLibrary(unsigned profiles3gpp, unsigned profiles3gpp2) {
    discardLog();
    modem().stop();
    modem().useVirtualClock(true);
    modem().factoryReset();
    createProfiles(modem(), WDS_PROFILE_TYPE_3GPP_V01, profiles3gpp);
    createProfiles(modem(), WDS_PROFILE_TYPE_3GPP2_V01, profiles3gpp2);
    modem().start();
    restart();
    manager().refresh(PDCRefreshStatus::Complete);
}

void LoadedLibrary::restart() {
    manager().init(0, true);
    if (!modem().waitForRegisteredClient(kPatience)) {
        fail("the library does not find the modem");
    }
}

std::shared_ptr<IProfileKey> LoadedLibrary::key(unsigned number) {
    const auto keys = manager().filter(filterFor(number));
    if (keys.size() != 1) {
        fail("a profile is missing");
    }
    return keys.front();
}

void LoadedLibrary::settle() {
    modem().waitForDeliveries(kPatience);
    // What the worker was told before this request it hears before it.
    manager().match(FilterProfileParams(), nullptr);
}

std::string LoadedLibrary::apnName(unsigned number) {
    return "internet" + std::to_string(number) + ".mnc001.mcc262.gprs";
}

FilterProfileParams LoadedLibrary::filterFor(unsigned number) {
    FilterProfileParams filter;
    filter.setApnName(apnName(number));
    filter.setFilterByTechType(TechType::Tech3gpp);
    return filter;
}

ProfileParams LoadedLibrary::settings(const std::string& apnName) {
    ProfileParams params;
    params.setApnName(apnName);
    params.setUserName("somebody");
    params.setPassword("password");
    params.setAuthType(AuthType::PAP_CHAP);
    params.setHomeIPType(IPType::V4V6);
    params.setRoamIPType(IPType::V4V6);
    params.setApnTypesMask(toMask(ApnTypes::DEFAULT | ApnTypes::SUPL));
    return params;
}

}  // namespace kiv::bench
