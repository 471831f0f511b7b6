#include "Expectation.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace kiv::kivctl {
namespace {

constexpr int kNew = -1;

HeldProfile held(int id, const char* apn, IPType home, std::optional<IPType> roam = std::nullopt,
                 std::optional<std::string> name = std::nullopt) {
    HeldProfile profile;
    profile.id = id;
    profile.apnName = apn;
    profile.homeType = home;
    profile.lteRoamType = profile.umtsRoamType = roam;
    profile.name = std::move(name);
    return profile;
}

ProfileParams asked(const char* apn, std::optional<IPType> home = std::nullopt,
                    std::optional<IPType> roam = std::nullopt,
                    std::optional<ApnTypes> types = std::nullopt) {
    ProfileParams params;
    params.setApnName(apn);
    if (home) {
        params.setHomeIPType(*home);
    }
    if (roam) {
        params.setRoamIPType(*roam);
    }
    if (types) {
        params.setApnTypesMask(toMask(*types));
    }
    return params;
}

TEST(ExpectationTest, eachUseTakesTheBestProfileThatIsFreeForItOrCreatesOne) {
    const HeldProfile v4 = held(1, "Net", IPType::V4);
    const HeldProfile v6 = held(2, "net", IPType::V6);
    const HeldProfile dual = held(3, "net", IPType::V4V6);
    const HeldProfile ours = held(4, "net", IPType::V4, {}, kLibraryProfileName);
    const HeldProfile attach = held(5, "other", IPType::V4, {}, kAttachProfileName);
    HeldProfile sos = held(6, "sos", IPType::V4);
    HeldProfile any = held(7, "any", IPType::V4);
    sos.emergencySupported = any.emergencySupported = true;
    const struct {
        Outcomes (*expect)(const ModemTable&, const ProfileParams&);
        ModemTable table;
        ProfileParams params;
        std::set<int> ids;
    } cases[] = {
        {expectAttach, {v4, v6, dual}, asked("NET", IPType::V4), {1}},
        {expectAttach, {v4, v6, dual}, asked("net"), {1, 2, 3}},
        {expectAttach, {v6, dual}, asked("net", IPType::V4), {3}},
        {expectAttach, {v6}, asked("net", IPType::V4), {kNew}},
        {expectAttach, {v4, v6}, asked("net", IPType::V4V6), {1, 2}},
        {expectAttach, {v4}, asked("net", IPType::V4, IPType::V6), {kNew}},
        {expectAttach, {v4, ours}, asked("net", IPType::V4), {1}},
        {expectAttach, {ours}, asked("net", IPType::V4), {kNew}},
        {expectAttach, {ours, attach}, asked("net", IPType::V4), {5}},
        {expectDataCall, {v4, dual}, asked("net", IPType::V4V6), {3}},
        {expectDataCall, {v4, dual}, asked("net", IPType::V6), {3}},
        {expectDataCall, {v4, dual}, asked("net"), {1, 3}},
        {expectDataCall, {v6}, asked("net", IPType::V4), {kNew}},
        {expectEmergency, {v4, dual}, asked("net"), {kNew}},
        {expectEmergency, {sos, any}, asked("SOS"), {6}},
        {expectEmergency, {sos, any}, {}, {6, 7}},
        {expectEmergency, {any}, asked("sos"), {7}},
    };
    for (const auto& one : cases) {
        std::set<int> ids;
        for (const Outcome& outcome : one.expect(one.table, one.params)) {
            ids.insert(outcome.created ? kNew : outcome.profile.id);
        }
        EXPECT_EQ(ids, one.ids) << "case " << &one - cases;
    }
}

TEST(ExpectationTest, createdAndReusedProfilesGetWhatIsAsked) {
    HeldProfile expected = held(0, "six", IPType::V4V6, IPType::V6, kLibraryProfileName);
    expected.overrideHomeType = IPType::V4;
    EXPECT_EQ(expectDataCall({}, asked("SIX", IPType::V4, IPType::V6)).at(0).profile, expected);

    expected = held(0, "sos", IPType::V4, {}, kLibraryProfileName);
    expected.persistent = true;
    expected.emergencySupported = true;
    expected.typeMask = 0x200;
    const auto sos = asked("sos", IPType::V4, {}, ApnTypes::DEFAULT);
    EXPECT_EQ(expectEmergency({}, sos).at(0).profile, expected);

    const HeldProfile attach = held(5, "other", IPType::V4, {}, kAttachProfileName);
    expected = held(5, "new", IPType::V4V6, IPType::V4, kAttachProfileName);
    expected.overrideHomeType = IPType::V6;
    EXPECT_EQ(expectAttach({attach}, asked("New", IPType::V6, IPType::V4)).at(0).profile, expected);

    const std::string name = std::string(149, 'A') + "\xc3\x84";
    EXPECT_EQ(createdProfile(asked(name.c_str()), false, kLibraryProfileName).apnName,
              std::string(149, 'a') + "\xc3");
}

TEST(ExpectationTest, typesMoveWhereTheirIpTypeHasNoProfile) {
    const auto v4 = asked("NET", IPType::V4, {}, ApnTypes::DEFAULT);
    const auto v6 = asked("NET", IPType::V6, {}, ApnTypes::SUPL);
    const auto dual = asked("net", {}, {}, ApnTypes::MMS);
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
        {{IPType::V6}, {v4, v4}, {0x1}},
        {{IPType::V4}, {asked("net"), asked("net2", {}, {}, ApnTypes::IMS)}, {Types{}}},
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
    const HeldProfile differing = held(1, "net", IPType::V4, IPType::V6);
    HeldProfile folded = held(1, "net", IPType::V4V6, IPType::V6);
    folded.overrideHomeType = IPType::V4;
    folded.typeMask = 0;
    EXPECT_EQ(changedProfile(differing, types), folded);
    EXPECT_EQ(changedProfile(folded, types), folded);

    HeldProfile unfolded = held(1, "net", IPType::V6, IPType::V6);
    EXPECT_EQ(changedProfile(differing, asked("net", IPType::V6)), unfolded);
    unfolded.overrideHomeType = IPType::UNKNOWN;
    unfolded.typeMask = 0;
    EXPECT_EQ(changedProfile(folded, asked("net", IPType::V6)), unfolded);
}

}  // namespace
}  // namespace kiv::kivctl
