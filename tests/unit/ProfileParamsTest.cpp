#include "ProfileParams.h"

#include <gtest/gtest.h>

#include "FilterProfileParams.h"
#include "Params.h"

namespace kiv {
namespace {

using test::filled;

TEST(ProfileParams, PrintsValuesByNameOrNumber) {
    const struct {
        int value;
        std::string auth, ip, apnClass;
    } rows[] = {{0, "NONE", "UNKNOWN", "0"},     {1, "PAP", "V4", "IMS"}, {2, "CHAP", "V6", "ADMN"},
                {3, "PAP_CHAP", "V4V6", "INET"}, {4, "4", "4", "APP"},    {-1, "-1", "-1", "-1"}};
    for (const auto& row : rows) {
        ProfileParams params;
        params.setAuthType(static_cast<AuthType>(row.value));
        params.setRoamIPType(static_cast<IPType>(row.value));
        params.setApnClass(static_cast<ApnClass>(row.value));
        EXPECT_EQ(params.dump(), "AuthType=" + row.auth + ",RoamIPType=" + row.ip +
                                     ",ApnClass=" + row.apnClass + ",");
    }
}

TEST(ProfileParams, PrintsSets) {
    EXPECT_EQ(testing::PrintToString(ApnTypes{}), "NONE");
    EXPECT_EQ(testing::PrintToString(static_cast<ApnTypes>(0xFFFFFFFF)),
              "DEFAULT|MMS|SUPL|DUN|HIPRI|FOTA|IMS|CBS|IA|EMERGENCY|MCX|XCAP|");
    EXPECT_EQ(testing::PrintToString(static_cast<FilterMatchType>(0xFF)),
              "HomeIPSubset|RoamIPSubset|ApnNameSubset|ApnTypeBitmaskSubset|HomeIPSuperset|"
              "RoamIPSuperset|");
}

TEST(ProfileParams, DumpsWhatIsPresentAndAssignmentMakesAbsent) {
    auto params = filled<ProfileParams>([](auto& p) {
        p.setPdnReqWaitInterval(30);
        p.setMaxPdnConnTimer(-20);
        p.setMaxPdnsConnPerBlock(1000);
        p.setIsApnDisabled(true);
        p.setIsEmergencySupported(false);
        p.setIsClatEnabled(true);
        p.setApnClass(ApnClass::INET);
        p.setApnTypesMask(0x1);
        p.setApnTypesMask(ApnTypes::IMS | ApnTypes::IA);
        p.setRoamIPType(IPType::V6);
        p.setHomeIPType(IPType::V4V6);
        p.setAuthType(AuthType::PAP_CHAP);
        p.setPassword("Secret");
        p.setUserName("Bob");
        p.setApnName("");
    });
    EXPECT_EQ(params.dump(),
              "ApnName=,UserName=Bob,Password=Secret,AuthType=PAP_CHAP,HomeIPType=V4V6,"
              "RoamIPType=V6,ApnTypesMask=IMS|IA|,ApnClass=INET,IsClatEnabled=true,"
              "MaxPdnsConnPerBlock=1000,MaxPdnConnTimer=-20,PdnReqWaitInterval=30,"
              "IsApnDisabled=true,IsEmergencySupported=false,");
    params = ProfileParams();
    EXPECT_EQ(params.dump(), "");
}

TEST(ProfileParams, OfEachUseDumpWhatIsTheirsFirst) {
    const auto filter = filled<FilterProfileParams>([](auto& p) {
        p.addFilterMatchCriteria(FilterMatchType::ApnNameSubset | FilterMatchType::RoamIPSubset);
        p.addFilterMatchCriteria(0x40);
        p.removeFilterMatchCriteria(0x40 | toMask(FilterMatchType::HomeIPSubset));
        p.removeFilterMatchCriteria(FilterMatchType::RoamIPSubset);
        p.setFilterByProfileId(3);
        p.setFilterByTechType(TechType::Tech3gpp);
        p.setFilterByIsIAProfile(true);
        p.setFilterByIsKivProfile(false);
    });
    EXPECT_EQ(filter.dump(), "ApnNameSubset|: tech=3GPP,id=3,IsKivProfile=false,IsIAProfile=true,");
    const ProfileParams plain(filter);
    EXPECT_EQ(FilterProfileParams(plain).dump(), "None: IsKivProfile=false,IsIAProfile=true,");
    EXPECT_EQ(AddProfileParams(plain, false, TechType::Tech3gpp2, false).dump(),
              "3GPP2 persist=false: IsKivProfile=false,IsIAProfile=false,");
}

}  // namespace
}  // namespace kiv
