#include "ProfileParams.h"

#include <gtest/gtest.h>

#include <sstream>

#include "AddProfileParams.h"
#include "FilterProfileParams.h"
#include "ModifyProfileParams.h"
#include "Records.h"

namespace kiv {
namespace {

using test::filled;

template <class Set>
std::string printed(uint32_t mask) {
    std::ostringstream out;
    out << static_cast<Set>(mask);
    return out.str();
}

ProfileParams fullParams() {
    return filled<ProfileParams>([](auto& p) {
        p.setPdnReqWaitInterval(30);
        p.setMaxPdnConnTimer(-20);
        p.setMaxPdnsConnPerBlock(1000);
        p.setIsApnDisabled(true);
        p.setIsEmergencySupported(false);
        p.setIsClatEnabled(true);
        p.setApnClass(ApnClass::INET);
        p.setApnTypesMask(toMask(ApnTypes::IMS | ApnTypes::IA));
        p.setRoamIPType(IPType::V6);
        p.setHomeIPType(IPType::V4V6);
        p.setAuthType(AuthType::PAP_CHAP);
        p.setPassword("Secret");
        p.setUserName("Bob");
        p.setApnName("");
    });
}

constexpr const char* kFullDumped =
    "ApnName=,UserName=Bob,Password=Secret,AuthType=PAP_CHAP,HomeIPType=V4V6,RoamIPType=V6,"
    "ApnTypesMask=IMS|IA|,ApnClass=INET,IsClatEnabled=true,MaxPdnsConnPerBlock=1000,"
    "MaxPdnConnTimer=-20,PdnReqWaitInterval=30,IsApnDisabled=true,IsEmergencySupported=false,";

TEST(ProfileParams, PrintsValuesByNameOrNumber) {
    const struct {
        int value;
        std::string auth, ip, apnClass;
    } rows[] = {{0, "NONE", "UNKNOWN", "0"},     {1, "PAP", "V4", "IMS"}, {2, "CHAP", "V6", "ADMN"},
                {3, "PAP_CHAP", "V4V6", "INET"}, {4, "4", "4", "APP"},    {5, "5", "5", "5"}};
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
    EXPECT_EQ(printed<ApnTypes>(0), "NONE");
    EXPECT_EQ(printed<ApnTypes>(0x041), "DEFAULT|IMS|");
    EXPECT_EQ(printed<ApnTypes>(0x1000), "");
    EXPECT_EQ(printed<ApnTypes>(0xFFFFFFFF),
              "DEFAULT|MMS|SUPL|DUN|HIPRI|FOTA|IMS|CBS|IA|EMERGENCY|MCX|XCAP|");
    EXPECT_EQ(printed<FilterMatchType>(0), "None");
    EXPECT_EQ(printed<FilterMatchType>(0x40), "");
    EXPECT_EQ(printed<FilterMatchType>(0xFF),
              "HomeIPSubset|RoamIPSubset|ApnNameSubset|ApnTypeBitmaskSubset|HomeIPSuperset|"
              "RoamIPSuperset|");
}

TEST(ProfileParams, DumpsWhatIsPresentAndAssignmentMakesAbsent) {
    const ProfileParams empty;
    EXPECT_FALSE(empty.getIsKivProfile() || empty.getIsIAProfile() || empty.hasUserName());
    EXPECT_EQ(empty.getUserName(), "");
    EXPECT_EQ(static_cast<int>(empty.getApnClass()), 0);

    ProfileParams params = fullParams();
    const ProfileParams copy = params;
    params = empty;
    EXPECT_EQ(params.dump(), "");
    EXPECT_EQ(copy.dump(), kFullDumped);
}

TEST(AddProfileParams, TheArgumentDecidesTheInitialAttachFlag) {
    EXPECT_EQ(AddProfileParams(false, TechType::Tech3gpp, false).dump(),
              "3GPP persist=false: IsIAProfile=false,");
    EXPECT_EQ(AddProfileParams(true, static_cast<TechType>(5), true).dump(),
              "5 persist=true: IsIAProfile=true,");

    FilterProfileParams source = filled<FilterProfileParams>([](auto& p) {
        p.setApnName("ims");
        p.setFilterByIsIAProfile(true);
        p.setFilterByIsKivProfile(true);
    });
    const AddProfileParams params(source, false, TechType::Tech3gpp2, false);
    EXPECT_FALSE(params.getIsIAProfile());
    EXPECT_EQ(params.dump(),
              "3GPP2 persist=false: ApnName=ims,IsKivProfile=true,IsIAProfile=false,");
}

TEST(FilterProfileParams, DumpsCriteriaFirst) {
    const auto filter = filled<FilterProfileParams>([](auto& p) {
        p.addFilterMatchCriteria(toMask(FilterMatchType::ApnNameSubset) | 0x40);
        p.removeFilterMatchCriteria(0x40 | toMask(FilterMatchType::HomeIPSubset));
        p.setFilterByProfileId(3);
        p.setFilterByTechType(TechType::Tech3gpp);
        p.setApnName("ims");
    });
    EXPECT_EQ(filter.dump(), "ApnNameSubset|: tech=3GPP,id=3,ApnName=ims,");

    FilterProfileParams flags;
    flags.setFilterByIsKivProfile(false);
    EXPECT_TRUE(flags.hasFilterByIsKivProfile());
    EXPECT_FALSE(flags.hasFilterByIsIAProfile());
    const FilterProfileParams fromProfile(static_cast<const ProfileParams&>(flags));
    EXPECT_EQ(fromProfile.dump(), "None: IsKivProfile=false,");
    EXPECT_EQ(ModifyProfileParams(fromProfile).dump(), "IsKivProfile=false,");
}

}  // namespace
}  // namespace kiv
