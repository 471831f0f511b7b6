#include <gtest/gtest.h>

#include "ModemProfile.h"
#include "Params.h"
#include "Profiles.h"

namespace kiv {
namespace {

using namespace test;
using F = FilterProfileParams;

constexpr uint32_t kName = toMask(FilterMatchType::ApnNameSubset);
constexpr uint32_t kTypes = toMask(FilterMatchType::ApnTypeBitmaskSubset);
constexpr uint32_t kHomeSub = toMask(FilterMatchType::HomeIPSubset);
constexpr uint32_t kHomeSuper = toMask(FilterMatchType::HomeIPSuperset);
constexpr uint32_t kRoamSub = toMask(FilterMatchType::RoamIPSubset);
constexpr uint32_t kRoamSuper = toMask(FilterMatchType::RoamIPSuperset);

/// One question to a profile: what it holds, what the filter asks for and how, and the answer.
template <class Profile>
struct Row {
    int line;
    void (*hold)(Profile&);
    void (*ask)(F&);
    uint32_t criteria;
    bool matches;
};

template <class Profile, size_t count>
void check(const Row<Profile> (&rows)[count]) {
    for (const auto& row : rows) {
        Profile profile{ProfileParams()};
        row.hold(profile);
        F filter = filled(row.ask);
        filter.addFilterMatchCriteria(row.criteria);
        EXPECT_EQ(profile.match(filter), row.matches) << "row of line " << row.line;
    }
}

TEST(Modem3gppMatch, AnswersBySettings) {
    using P = Modem3gppProfile;
    static constexpr auto none = [](P&) {};
    static constexpr auto full = [](P& p) {
        p.setProfileId(7);
        p.setApnName("ims.mnc001.mcc001");
        p.setUserName("Bob");
        p.setAuthType(AuthType::NONE);
        p.setApnTypesMask(0x103);
        p.setApnClass(ApnClass::IMS);
    };
    static constexpr auto unnamed = [](P& p) { p.setApnName(""); };
    static constexpr auto ia = [](P& p) { p.setProfileName("kiv_profile_ia"); };
    static constexpr auto kiv = [](P& p) { p.setProfileName("kiv_profile"); };
    static constexpr auto other = [](P& p) { p.setProfileName("KIV_profile"); };
    const Row<P> rows[] = {
        {__LINE__, full, [](F& f) { f.setApnName("IMS.mnc001.MCC001"); }, 0, true},
        {__LINE__, full, [](F& f) { f.setApnName("ims"); }, kTypes, false},
        {__LINE__, full, [](F& f) { f.setApnName("MNC"); }, kName, true},
        {__LINE__, full, [](F& f) { f.setApnName(""); }, kName, true},
        {__LINE__, unnamed, [](F& f) { f.setApnName(""); }, kName, true},
        {__LINE__, none, [](F& f) { f.setApnName(""); }, kName, false},
        {__LINE__, full, [](F& f) { f.setUserName("bob"); }, 0, false},
        {__LINE__, full, [](F& f) { f.setApnTypesMask(0x141); }, 0, true},
        {__LINE__, full, [](F& f) { f.setApnTypesMask(0x140); }, kTypes, true},
        {__LINE__, full, [](F& f) { f.setApnTypesMask(0x142); }, kTypes, false},
        {__LINE__, none, [](F& f) { f.setApnTypesMask(0); }, kTypes, false},
        {__LINE__, full, [](F& f) { f.setFilterByProfileId(7); }, 0, true},
        {__LINE__, full, [](F& f) { f.setFilterByProfileId(8); }, 0, false},
        {__LINE__, none, [](F& f) { f.setFilterByTechType(TechType::Tech3gpp2); }, 0, false},
        {__LINE__, ia, [](F& f) { f.setFilterByIsIAProfile(true); }, 0, true},
        {__LINE__, ia, [](F& f) { f.setFilterByIsKivProfile(true); }, 0, true},
        {__LINE__, kiv, [](F& f) { f.setFilterByIsIAProfile(true); }, 0, false},
        {__LINE__, other, [](F& f) { f.setFilterByIsKivProfile(true); }, 0, false},
    };
    check(rows);
}

TEST(Modem3gppMatch, AnswersByIPTypes) {
    const struct {
        int line;
        IPTypes held;  // home, override, LTE and UMTS roaming
        Type home, roam;
        uint32_t criteria;
        bool matches;
    } rows[] = {
        {__LINE__, {v46, v4, no, no}, v4, no, 0, true},
        {__LINE__, {v46, unknown, no, no}, v4, no, 0, false},
        {__LINE__, {v46, no, no, no}, v4, no, kHomeSub, true},
        {__LINE__, {v6, no, no, no}, v46, no, kHomeSuper, true},
        {__LINE__, {no, no, no, no}, v46, no, kHomeSuper, false},
        {__LINE__, {unknown, no, no, no}, v46, no, kHomeSuper, true},
        {__LINE__, {v4, no, no, v4}, no, v4, kRoamSub, false},
        {__LINE__, {v6, no, v4, v4}, no, v4, 0, true},
        {__LINE__, {v4, v6, no, no}, no, v4, 0, true},
        {__LINE__, {v46, no, no, no}, no, v4, kRoamSub, true},
        {__LINE__, {v46, no, v6, v6}, no, v46, kRoamSuper, true},
    };
    for (const auto& row : rows) {
        Modem3gppProfile profile{ProfileParams()};
        F filter = withIPTypes<F>(row.home, row.roam);
        filter.addFilterMatchCriteria(row.criteria);
        EXPECT_EQ(setIPTypes(profile, row.held).match(filter), row.matches) << row.line;
    }
}

TEST(Modem3gpp2Match, TakesAnAbsentTypeAsEmpty) {
    using P = Modem3gpp2Profile;
    static constexpr auto none = [](P&) {};
    const Row<P> rows[] = {
        {__LINE__, none, [](F& f) { f.setHomeIPType(IPType::V4); }, 0, false},
        {__LINE__, none, [](F& f) { f.setHomeIPType(IPType::V4); }, kHomeSuper, true},
        {__LINE__, none, [](F& f) { f.setFilterByTechType(TechType::Tech3gpp2); }, 0, true},
        {__LINE__, none, [](F& f) { f.setFilterByIsIAProfile(false); }, 0, false},
        {__LINE__, none, [](F& f) { f.setRoamIPType(IPType::UNKNOWN); }, 0, false},
    };
    check(rows);
}

TEST(ModemProfileMatch, TakesAFilterForASettingOnlyIfItIsPresent) {
    const struct {
        int line;
        void (*ask)(F&);
        bool only3gpp;
    } rows[] = {
        {__LINE__, [](F& f) { f.setApnName(std::string(160, 'A')); }, false},
        {__LINE__, [](F& f) { f.setApnTypesMask(0); }, false},
        {__LINE__, [](F& f) { f.setUserName(""); }, false},
        {__LINE__, [](F& f) { f.setPassword(""); }, false},
        {__LINE__, [](F& f) { f.setAuthType(AuthType::NONE); }, false},
        {__LINE__, [](F& f) { f.setApnClass(ApnClass{}); }, false},
        {__LINE__, [](F& f) { f.setIsClatEnabled(false); }, false},
        {__LINE__, [](F& f) { f.setMaxPdnsConnPerBlock(0); }, true},
        {__LINE__, [](F& f) { f.setMaxPdnConnTimer(0); }, true},
        {__LINE__, [](F& f) { f.setPdnReqWaitInterval(0); }, true},
        {__LINE__, [](F& f) { f.setIsApnDisabled(false); }, true},
        {__LINE__, [](F& f) { f.setIsEmergencySupported(false); }, true},
    };
    const Modem3gppProfile bare3gpp{ProfileParams()};
    const Modem3gpp2Profile bare3gpp2{ProfileParams()};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        F filter = filled(row.ask);
        EXPECT_TRUE(Modem3gppProfile(filter).match(filter));
        EXPECT_NE(Modem3gpp2Profile(filter).match(filter), row.only3gpp);
        EXPECT_FALSE(bare3gpp.match(filter));
        EXPECT_FALSE(bare3gpp2.match(filter));
        EXPECT_EQ(bare3gpp2.ModemProfile::match(filter), row.only3gpp);
    }
}

}  // namespace
}  // namespace kiv
