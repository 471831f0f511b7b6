#include "Conversions.h"

#include "LoggedTest.h"

namespace kiv {
namespace {

using Conversions = test::LoggedTest;

TEST_F(Conversions, TypesFromTheModem) {
    const struct {
        int value, tech, pdp, common, pdn;
        size_t unknown;  // how many of these are logged as unknown
    } rows[] = {{-1, 0, 0, 0, 0, 4}, {0, 0, 1, 1, 1, 0}, {1, 1, 0, 2, 2, 1},  {2, 0, 2, 3, 3, 1},
                {3, 0, 3, 0, 0, 2},  {4, 0, 0, 0, 0, 4}, {255, 0, 0, 0, 0, 4}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.value);
        log.clear();
        const auto tech = convertProfileType(static_cast<wds_profile_type_enum_v01>(row.value));
        const auto pdp = convertPdpType(static_cast<wds_pdp_type_enum_v01>(row.value));
        const auto common = convertPdpType(static_cast<wds_common_pdp_type_enum_v01>(row.value));
        const auto pdn = convertPdnType(static_cast<wds_profile_pdn_type_enum_v01>(row.value));
        EXPECT_EQ(static_cast<int>(tech), row.tech);
        EXPECT_EQ(static_cast<int>(pdp), row.pdp);
        EXPECT_EQ(static_cast<int>(common), row.common);
        EXPECT_EQ(static_cast<int>(pdn), row.pdn);
        EXPECT_EQ(log.lines().size(), row.unknown);
    }
}

TEST_F(Conversions, IPAndAuthTypesToTheModemAndAuthTypesBack) {
    const struct {
        int value, pdp, pdn, common, preference, protocol;
    } rows[] = {{0, 3, 2, 255, 0, 0}, {1, 0, 0, 0, 1, 1}, {2, 2, 1, 1, 2, 2},
                {3, 3, 2, 2, 3, 3},   {4, 3, 2, 2, 0, 0}, {255, 3, 2, 2, 3, 0}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.value);
        const auto ip = static_cast<IPType>(row.value);
        EXPECT_EQ(convertToRavPdpType(ip), row.pdp);
        EXPECT_EQ(convertToRavProfilePdnType(ip), row.pdn);
        EXPECT_EQ(convertToRavCommonPdpType(ip), row.common);
        const auto auth = static_cast<AuthType>(row.value);
        EXPECT_EQ(convertToRavAuthPref(auth), row.preference);
        EXPECT_EQ(convertToRavAuthProtocol(auth), row.protocol);
        EXPECT_EQ(convertToRavPdnLevelAuthProtocol(auth), row.protocol);
        const auto preference = convertToAuthType(static_cast<uint8_t>(row.value));
        const auto protocol = static_cast<wds_profile_auth_protocol_enum_v01>(row.value);
        EXPECT_EQ(static_cast<int>(preference), row.preference);
        EXPECT_EQ(static_cast<int>(convertToAuthType(protocol)), row.protocol);
    }
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(Conversions, ApnTypesBothWays) {
    const uint64_t ravTypes[] = {0x001, 0x004, 0x010, 0x008, 0x020, 0x040,
                                 0x002, 0x080, 0x100, 0x200, 0x800, 0x400};
    uint32_t type = 1;
    for (const uint64_t ravType : ravTypes) {
        EXPECT_EQ(convertToSingleRavApnType(static_cast<ApnTypes>(type)), ravType);
        EXPECT_EQ(toMask(convertToSingleCommonApnType(ravType)), type);
        EXPECT_EQ(convertToRavApnTypeMask(type), ravType);
        EXPECT_EQ(convertToCommonApnTypeMask(ravType), type);
        type <<= 1;
    }
    for (const uint32_t notOneType : {0U, 3U, 0x1000U, 0xFFFFFFFFU}) {
        EXPECT_EQ(convertToSingleRavApnType(static_cast<ApnTypes>(notOneType)), 0U);
        EXPECT_EQ(toMask(convertToSingleCommonApnType(notOneType)), 0U);
    }
    EXPECT_EQ(toMask(convertToSingleCommonApnType(0x100000001)), 0U);
    EXPECT_EQ(convertToRavApnTypeMask(0xFFFFFFFF), 0xFFFU);
    EXPECT_EQ(convertToCommonApnTypeMask(~UINT64_C(0)), 0xFFFU);
}

TEST_F(Conversions, IdentifierAndLowerCase) {
    const auto identifier = convertToProfileIdentifier(TechType::Tech3gpp2, -1);
    EXPECT_EQ(identifier.profile_type, WDS_PROFILE_TYPE_3GPP2_V01);
    EXPECT_EQ(identifier.profile_index, 255);
    EXPECT_EQ(convertToProfileIdentifier(static_cast<TechType>(2), 0x105).profile_type, 0);
    EXPECT_EQ(convertToProfileIdentifier(TechType::Tech3gpp, 0x105).profile_index, 5);
    EXPECT_EQ(convertToLower("@AZ[`az{\xC4\xE4"), "@az[`az{\xC4\xE4");
}

}  // namespace
}  // namespace kiv
