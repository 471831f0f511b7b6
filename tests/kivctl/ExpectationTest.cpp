#include "Expectation.h"

#include <gtest/gtest.h>

#include <string>

namespace kiv::kivctl {
namespace {

HeldProfile held(const char* apn, IPType home, std::optional<IPType> roam = std::nullopt) {
    HeldProfile profile;
    profile.apnName = apn;
    profile.homeType = home;
    profile.lteRoamType = profile.umtsRoamType = roam;
    return profile;
}

ProfileParams asked(const char* apn, std::optional<IPType> home = std::nullopt,
                    std::optional<ApnTypes> types = std::nullopt) {
    ProfileParams params;
    params.setApnName(apn);
    if (home) {
        params.setHomeIPType(*home);
    }
    if (types) {
        params.setApnTypesMask(toMask(*types));
    }
    return params;
}

TEST(ExpectationTest, typesMoveWhereTheirIpTypeHasNoProfile) {
    const auto v4 = asked("NET", IPType::V4, ApnTypes::DEFAULT);
    const auto v6 = asked("NET", IPType::V6, ApnTypes::SUPL);
    const auto dual = asked("net", {}, ApnTypes::MMS);
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
        {{IPType::V4}, {asked("net"), asked("net2", {}, ApnTypes::IMS)}, {Types{}}},
    };
    for (const auto& one : cases) {
        for (const TechType techType : {TechType::Tech3gpp, TechType::Tech3gpp2}) {
            ModemTable table;
            for (const IPType home : one.homes) {
                table.push_back(held("nEt", home));
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
    const HeldProfile differing = held("net", IPType::V4, IPType::V6);
    HeldProfile folded = held("net", IPType::V4V6, IPType::V6);
    folded.overrideHomeType = IPType::V4;
    folded.typeMask = 0;
    EXPECT_EQ(changedProfile(differing, types), folded);
    EXPECT_EQ(changedProfile(folded, types), folded);

    HeldProfile unfolded = held("net", IPType::V6, IPType::V6);
    EXPECT_EQ(changedProfile(differing, asked("net", IPType::V6)), unfolded);
    unfolded.overrideHomeType = IPType::UNKNOWN;
    unfolded.typeMask = 0;
    EXPECT_EQ(changedProfile(folded, asked("net", IPType::V6)), unfolded);
}

}  // namespace
}  // namespace kiv::kivctl
