#include "Expectation.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace kiv::kivctl {
namespace {

constexpr int kNew = -1;

HeldProfile held(int id, const char* apn, std::optional<IPType> home,
                 std::optional<IPType> roam = std::nullopt, const char* name = nullptr) {
    HeldProfile profile;
    profile.id = id;
    profile.apnName = apn;
    profile.homeType = home;
    profile.lteRoamType = profile.umtsRoamType = roam;
    if (name != nullptr) {
        profile.name = name;
    }
    return profile;
}

ProfileParams asked(const char* apn, IPType home = IPType::UNKNOWN, IPType roam = IPType::UNKNOWN) {
    ProfileParams params;
    params.setApnName(apn);
    if (home != IPType::UNKNOWN) {
        params.setHomeIPType(home);
    }
    if (roam != IPType::UNKNOWN) {
        params.setRoamIPType(roam);
    }
    return params;
}

std::set<int> ids(const Outcomes& outcomes) {
    std::set<int> result;
    for (const Outcome& outcome : outcomes) {
        result.insert(outcome.created ? kNew : outcome.profile.id);
    }
    return result;
}

TEST(ExpectationTest, attachTakesTheBestProfileThatIsFreeForIt) {
    const HeldProfile v4 = held(1, "Net", IPType::V4);
    const HeldProfile v6 = held(2, "net", IPType::V6);
    const HeldProfile dual = held(3, "net", IPType::V4V6);
    const HeldProfile ours = held(4, "net", IPType::V4, std::nullopt, kLibraryProfileName);
    const HeldProfile attach = held(5, "other", IPType::V4, std::nullopt, kAttachProfileName);
    const struct {
        ModemTable table;
        ProfileParams params;
        std::set<int> ids;
    } cases[] = {
        {{v4, v6, dual}, asked("NET", IPType::V4), {1}},
        {{v4, v6, dual}, asked("net"), {1, 2, 3}},
        {{v6, dual}, asked("net", IPType::V4), {3}},
        {{v6}, asked("net", IPType::V4), {kNew}},
        {{v4, v6}, asked("net", IPType::V4V6), {1, 2}},
        {{v4}, asked("net", IPType::V4, IPType::V6), {kNew}},
        {{v4, ours}, asked("net", IPType::V4), {1}},
        {{ours}, asked("net", IPType::V4), {kNew}},
        {{ours, attach}, asked("net", IPType::V4), {5}},
        {{}, asked("net"), {kNew}},
    };
    for (const auto& one : cases) {
        EXPECT_EQ(ids(expectAttach(one.table, one.params)), one.ids) << one.params.dump();
    }
    const Outcomes reused = expectAttach({attach}, asked("New", IPType::V6, IPType::V4));
    EXPECT_EQ(reused.at(0).profile.apnName, "new");
    EXPECT_EQ(reused.at(0).profile.overrideHomeType, IPType::V6);
}

TEST(ExpectationTest, attachChangesNeitherNameNorIpTypeNorFlagsOfTheModemsOwnProfile) {
    ProfileParams params = asked("NET", IPType::V4);
    params.setUserName("u");
    params.setApnTypesMask(toMask(ApnTypes::MMS));
    params.setIsApnDisabled(true);
    HeldProfile changed = held(1, "Net", IPType::V4V6);
    changed.userName = "u";
    changed.typeMask = 0x004;
    const Outcomes outcomes = expectAttach({held(1, "Net", IPType::V4V6)}, params);
    ASSERT_EQ(outcomes.size(), 1U);
    EXPECT_EQ(outcomes[0].profile, changed);
}

TEST(ExpectationTest, dataCallPrefersTheSameIpTypeAndCreatesWhereNoneFits) {
    const ModemTable table = {held(1, "net", IPType::V4), held(2, "net", IPType::V4V6),
                              held(3, "six", IPType::V6)};
    EXPECT_EQ(ids(expectDataCall(table, asked("net", IPType::V4V6))), std::set<int>{2});
    EXPECT_EQ(ids(expectDataCall(table, asked("net", IPType::V6))), std::set<int>{2});
    EXPECT_EQ(ids(expectDataCall(table, asked("net"))), (std::set<int>{1, 2}));
    const Outcomes created = expectDataCall(table, asked("SIX", IPType::V4, IPType::V6));
    ASSERT_EQ(ids(created), std::set<int>{kNew});
    HeldProfile expected = held(0, "six", IPType::V4V6, IPType::V6, kLibraryProfileName);
    expected.overrideHomeType = IPType::V4;
    EXPECT_EQ(created[0].profile, expected);
}

TEST(ExpectationTest, createdNameIsLoweredAndCut) {
    const std::string name = std::string(149, 'A') + "\xc3\x84";
    const HeldProfile profile = createdProfile(asked(name.c_str()), false, kLibraryProfileName);
    EXPECT_EQ(profile.apnName, std::string(149, 'a') + "\xc3");
}

TEST(ExpectationTest, emergencyTakesACapableProfileOrCreatesOne) {
    HeldProfile named = held(1, "sos", IPType::V4);
    HeldProfile other = held(2, "any", IPType::V4);
    EXPECT_EQ(ids(expectEmergency({named, other}, asked("sos"))), std::set<int>{kNew});
    named.emergencySupported = other.emergencySupported = true;
    EXPECT_EQ(ids(expectEmergency({named, other}, asked("SOS"))), std::set<int>{1});
    EXPECT_EQ(ids(expectEmergency({named, other}, {})), (std::set<int>{1, 2}));
    EXPECT_EQ(ids(expectEmergency({other}, asked("sos"))), std::set<int>{2});
    ProfileParams params = asked("sos");
    params.setApnTypesMask(toMask(ApnTypes::DEFAULT));
    const HeldProfile created = expectEmergency({}, params).at(0).profile;
    EXPECT_TRUE(created.persistent && created.emergencySupported.value_or(false));
    EXPECT_EQ(created.typeMask, 0x200U);
}

TEST(ExpectationTest, typesMoveWhereTheirIpTypeHasNoProfile) {
    const auto wants = [](IPType home, ApnTypes types, const char* apn = "NET") {
        ProfileParams params = asked(apn, home);
        params.setApnTypesMask(toMask(types));
        return params;
    };
    const auto v4 = wants(IPType::V4, ApnTypes::DEFAULT);
    const auto v6 = wants(IPType::V6, ApnTypes::SUPL);
    const auto dual = wants(IPType::UNKNOWN, ApnTypes::MMS, "net");
    using Types = std::optional<uint64_t>;  // in the modem's bits: MMS 4, SUPL 0x10
    const struct {
        std::vector<IPType> homes;
        std::list<ProfileParams> asked;
        std::vector<Types> masks;
    } cases[] = {
        {{IPType::V4, IPType::V6, IPType::V4V6}, {v4, v6, dual}, {0x1, 0x10, 0x4}},
        {{IPType::V6, IPType::V4V6}, {v4, v6, dual}, {0x10, 0x5}},
        {{IPType::V4V6}, {v4, v6, dual}, {0x15}},
        {{IPType::V4, IPType::V6}, {v4, v6, dual}, {0x5, 0x14}},
        {{IPType::V6}, {v4}, {0x1}},
        {{IPType::V4}, {v4, v4}, {0x1}},
        {{IPType::V4}, {asked("net")}, {Types{}}},
        {{IPType::V4}, {wants(IPType::V4, ApnTypes::IMS, "net2")}, {Types{}}},
    };
    for (const auto& one : cases) {
        for (const TechType techType : {TechType::Tech3gpp, TechType::Tech3gpp2}) {
            ModemTable table;
            for (const IPType home : one.homes) {
                table.push_back(held(static_cast<int>(table.size()), "nEt", home));
                table.back().techType = techType;
            }
            expectTypes(table, one.asked);
            for (size_t i = 0; i < table.size(); ++i) {
                EXPECT_EQ(table[i].typeMask, one.masks[i]) << "case " << &one - cases << ' ' << i;
            }
        }
    }
}

TEST(ExpectationTest, anyChangeOfAProfileFoldsItsIpTypesAnew) {
    ProfileParams types;
    types.setApnTypesMask(0);
    HeldProfile folded = held(1, "net", IPType::V4V6, IPType::V6);
    folded.overrideHomeType = IPType::V4;
    folded.typeMask = 0;
    EXPECT_EQ(changedProfile(held(1, "net", IPType::V4, IPType::V6), types), folded);
    EXPECT_EQ(changedProfile(folded, types), folded);

    folded.overrideHomeType = IPType::UNKNOWN;
    folded.homeType = IPType::V6;
    EXPECT_EQ(changedProfile(folded, asked("net", IPType::V6)), folded);
    EXPECT_EQ(changedProfile(held(1, "net", IPType::V4, IPType::V6), asked("net", IPType::V6))
                  .overrideHomeType,
              std::nullopt);
}

}  // namespace
}  // namespace kiv::kivctl
