#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "ModemProfile.h"
#include "Params.h"
#include "Profiles.h"

namespace kiv {
namespace {

using namespace test;
using M = ModifyProfileParams;

/// What a profile dumps behind technology and id.
template <class Profile>
std::string behindHead(const Profile& profile) {
    return profile.dump().substr(Profile(ProfileParams()).dump().size());
}

/// What a difference dumps there; nothing if there is none.
template <class Profile>
std::string difference(const Profile& profile, const M& modification) {
    const auto result = profile.diff(modification);
    return result ? behindHead(dynamic_cast<const Profile&>(*result)) : "";
}

TEST(ModemProfileDiff, OfEverySettingIsAppliedOnce) {
    const auto all = filled<M>([](auto& m) {
        m.setApnName("A" + std::string(159, 'B'));
        m.setUserName("Bob");
        m.setPassword("Pw");
        m.setAuthType(AuthType::NONE);
        m.setApnTypesMask(toMask(ApnTypes::XCAP));
        m.setApnClass(ApnClass::IMS);
        m.setIsClatEnabled(false);
        m.setHomeIPType(IPType::V4);
        m.setRoamIPType(IPType::V6);
        m.setMaxPdnsConnPerBlock(0);
        m.setMaxPdnConnTimer(1);
        m.setPdnReqWaitInterval(2);
        m.setIsApnDisabled(false);
        m.setIsEmergencySupported(true);
    });
    const std::string name = "ApnName=a" + std::string(149, 'b');
    const std::string settings =
        "ApnTypesMask=1024,ApnClass=IMS,IsClatEnabled=0,OverrideHomeIPType=V4,LteRoamIP=V6,"
        "UmtsRoamIP=V6,MaxPdnsConnPerBlock=0,MaxPdnConnTimer=1,PdnReqWaitInterval=2,"
        "IsApnDisabled=0,IsEmergencySupported=1,";
    const std::string user = ",UserName=Bob,Password=Pw,AuthType=NONE,CommonIPType=";
    Modem3gppProfile profile{ProfileParams()};
    profile.setProfileId(5);
    profile.setProfileName("kept");
    EXPECT_EQ(difference(profile, all), name + user + "V4V6," + settings);

    const auto change = std::make_shared<Modem3gppProfile>(all);
    change->setApnName(all.getApnName());
    change->setProfileName("not taken over");
    profile.apply(change);
    profile.apply(nullptr);
    EXPECT_EQ(difference(profile, all), "");
    profile.apply(std::make_shared<Modem3gpp2Profile>(withIPTypes<ProfileParams>(v6, no)));
    EXPECT_EQ(profile.dump(),
              "TechType=3GPP,ProfileId=5," + name + user + "V6," + settings + "ProfileName=kept,");
}

TEST(ModemProfileDiff, HoldsJustWhatChanges) {
    Modem3gppProfile profile{ProfileParams()};
    profile.setApnName("ims");
    profile.setPassword("Pw");
    profile.setApnTypesMask(UINT64_C(0xF0000F400));
    profile.setIsApnDisabled(true);
    const struct {
        int line;
        void (*modify)(M&);
        std::string difference;
    } rows[] = {
        {__LINE__, [](M& m) { m.setApnName("IMS"); }, ""},
        {__LINE__, [](M& m) { m.setApnName("ims2"); }, "ApnName=ims2,"},
        {__LINE__, [](M& m) { m.setPassword("pw"); }, "Password=pw,"},
        {__LINE__, [](M& m) { m.setUserName(""); }, "UserName=,"},
        {__LINE__, [](M& m) { m.setApnTypesMask(0x800); }, ""},
        {__LINE__, [](M& m) { m.setApnTypesMask(0x440); }, "ApnTypesMask=2050,"},
        {__LINE__, [](M& m) { m.setIsApnDisabled(false); }, "IsApnDisabled=0,"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(difference(profile, filled(row.modify)), row.difference) << row.line;
    }
}

TEST(ModemProfileDiff, Of3gppFoldsIPTypes) {
    const struct {
        int line;
        IPTypes held;  // home, override, LTE and UMTS roaming
        Type home, roam;
        IPTypes changed;
    } rows[] = {
        {__LINE__, {v46, v4, v6, v6}, v4, no, {no, no, no, no}},
        {__LINE__, {v46, v4, v6, v6}, v46, no, {no, v46, no, no}},
        {__LINE__, {v46, v4, v6, v6}, no, v4, {v4, unknown, v4, v4}},
        {__LINE__, {v4, unknown, v4, v4}, v4, v4, {no, no, no, no}},
        {__LINE__, {v4, no, no, no}, no, v6, {v46, v4, v6, v6}},
        {__LINE__, {no, no, no, no}, v6, no, {v6, no, no, no}},
        {__LINE__, {no, no, no, no}, no, v6, {no, no, v6, v6}},
        {__LINE__, {v4, no, v4, no}, no, v4, {no, no, no, v4}},
        {__LINE__, {v4, no, v6, no}, v6, no, {v6, no, no, no}},
        {__LINE__, {v4, no, v6, v46}, v4, no, {no, no, no, no}},
    };
    for (const auto& row : rows) {
        Modem3gppProfile profile{ProfileParams()};
        setIPTypes(profile, row.held);
        Modem3gppProfile expected{ProfileParams()};
        EXPECT_EQ(difference(profile, withIPTypes<M>(row.home, row.roam)),
                  behindHead(setIPTypes(expected, row.changed)))
            << row.line;
    }
}

TEST(ModemProfileDiff, Of3gpp2LooksAtCommonSettingsAndHomeTypeOnly) {
    Modem3gpp2Profile profile{ProfileParams()};
    auto modification = withIPTypes<M>(no, v4);
    modification.setMaxPdnConnTimer(4);
    EXPECT_EQ(difference(profile, modification), "");
    modification.setHomeIPType(IPType::UNKNOWN);
    modification.setUserName("Bob");
    EXPECT_EQ(difference(profile, modification), "UserName=Bob,CommonIPType=UNKNOWN,");
    profile.apply(profile.diff(modification));
    EXPECT_EQ(difference(profile, modification), "");
    EXPECT_EQ(difference(profile, withIPTypes<M>(v6, no)), "CommonIPType=V6,");
}

}  // namespace
}  // namespace kiv
