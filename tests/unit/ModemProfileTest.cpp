#include "ModemProfile.h"

#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <string>
#include <vector>

#include "LoggedTest.h"
#include "Params.h"
#include "ProfileKey.h"
#include "Profiles.h"

namespace kiv {
namespace {

using namespace test;
using Texts = std::vector<std::string>;
using ModemProfileTest = LoggedTest;

TEST_F(ModemProfileTest, KeepsFoldedTypesAndReportsWhatTheClientAskedFor) {
    const auto params = filled<ProfileParams>([](auto& p) {
        p.setApnName("IMS.\xC3\x84@[");
        p.setApnTypesMask(0x1840);
        p.setHomeIPType(IPType::V6);
        p.setRoamIPType(IPType::V4);
        p.setIsClatEnabled(true);
        p.setIsEmergencySupported(true);
    });
    Modem3gppProfile profile(params);
    EXPECT_EQ(profile.dump(),
              "TechType=3GPP,ProfileId=-1,ApnName=ims.\xC3\x84@[,CommonIPType=V4V6,"
              "ApnTypesMask=1026,IsClatEnabled=1,OverrideHomeIPType=V6,LteRoamIP=V4,"
              "UmtsRoamIP=V4,IsEmergencySupported=1,");
    profile.setApnTypesMask(UINT64_C(0xF00000402));
    profile.setProfileName("kiv_profile");
    EXPECT_EQ(profile.get().dump(),
              "ApnName=ims.\xC3\x84@[,HomeIPType=V6,RoamIPType=V4,ApnTypesMask=IMS|XCAP|,"
              "IsClatEnabled=true,IsEmergencySupported=true,IsKivProfile=true,IsIAProfile=false,");
    Modem3gppProfile other{ProfileParams()};
    EXPECT_EQ(other.get().dump(), "IsKivProfile=false,IsIAProfile=false,");
    other.setProfileName("kiv_profile_ia");
    setIPTypes(other, {v46, unknown, v6, v4});
    EXPECT_EQ(other.get().dump(), "HomeIPType=V4V6,IsKivProfile=true,IsIAProfile=true,");
    EXPECT_EQ(Modem3gpp2Profile(params).get().dump(),
              "ApnName=ims.\xC3\x84@[,HomeIPType=V6,ApnTypesMask=IMS|XCAP|,IsClatEnabled=true,");
}

TEST_F(ModemProfileTest, DestructionCallsTheListenersOfLiveKeysInOrder) {
    const RequestFunction ignore = [](const auto&) { return nullptr; };
    const auto key = std::make_shared<ProfileKey>(TechType::Tech3gpp, 1, 1, ignore);
    auto droppedByListener = std::make_shared<ProfileKey>(TechType::Tech3gpp, 1, 1, ignore);
    Texts calls;
    {
        Modem3gppProfile profile{ProfileParams()};
        profile.registerExpirationListener([&] { calls.push_back("no key"); }, {});
        profile.registerExpirationListener([&] { calls.push_back("first"); }, key);
        profile.registerExpirationListener([&] { droppedByListener.reset(); }, key);
        profile.registerExpirationListener([&] { calls.push_back("gone"); }, droppedByListener);
        profile.registerExpirationListener(nullptr, key);
        profile.registerExpirationListener([] { throw std::bad_alloc(); }, key);
        profile.registerExpirationListener([&] { calls.push_back("last"); }, key);
        EXPECT_EQ(calls, Texts());
    }
    EXPECT_EQ(calls, Texts({"first", "last"}));
    const std::string invoked = "DEBUG invoke callback";
    EXPECT_EQ(takeLines(),
              Texts({"DEBUG ~ModemProfile()", invoked, invoked, "DEBUG ~ProfileKey",
                     "ERROR ModemProfile: skipping empty expiration listener", invoked,
                     "ERROR ModemProfile: an expiration listener is out of memory", invoked}));
}

}  // namespace
}  // namespace kiv
