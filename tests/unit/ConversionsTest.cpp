#include "Conversions.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "LogCapture.h"
#include "LogWrapper.h"

namespace kiv {
namespace {

class Conversions : public ::testing::Test {
protected:
    Conversions() { LogWrapper::getInstance().setLogWriter(std::make_unique<AdbWriter>()); }
    ~Conversions() override { LogWrapper::getInstance().setLogWriter(nullptr); }

    /// Converts value and checks both the result and the one line, or none, that it logs.
    template <class Enum, class Result>
    void expect(Result (*convert)(Enum), int value, Result result, const std::string& line = "") {
        log.clear();
        EXPECT_EQ(convert(static_cast<Enum>(value)), result) << value;
        const auto lines = line.empty() ? std::vector<std::string>() : std::vector{line};
        EXPECT_EQ(log.texts(), lines) << value;
    }

    test::LogCapture log;
};

TEST_F(Conversions, TypesFromTheModem) {
    expect(convertProfileType, 0, TechType::Tech3gpp);
    expect(convertProfileType, 1, TechType::Tech3gpp2);
    expect(convertProfileType, 2, TechType::Tech3gpp, "Unknown tech type 2");

    const auto pdp = static_cast<IPType (*)(wds_pdp_type_enum_v01)>(convertPdpType);
    expect(pdp, 0, IPType::V4);
    expect(pdp, 1, IPType::UNKNOWN, "Unknown pdp_type_enum 1");
    expect(pdp, 2, IPType::V6);
    expect(pdp, 3, IPType::V4V6);

    const auto common = static_cast<IPType (*)(wds_common_pdp_type_enum_v01)>(convertPdpType);
    expect(common, 0, IPType::V4);
    expect(common, 1, IPType::V6);
    expect(common, 2, IPType::V4V6);
    expect(common, 3, IPType::UNKNOWN, "Unknown pdp_type_enum 3");
    expect(common, 255, IPType::UNKNOWN, "Unknown pdp_type_enum 255");

    expect(convertPdnType, 0, IPType::V4);
    expect(convertPdnType, 1, IPType::V6);
    expect(convertPdnType, 2, IPType::V4V6);
    expect(convertPdnType, 3, IPType::UNKNOWN);
    expect(convertPdnType, -1, IPType::UNKNOWN, "Unknown profile_pdn_type_enum -1");
}

TEST_F(Conversions, IPAndAuthTypesToTheModemAndAuthTypesBack) {
    const struct {
        int value, pdp, pdn, common, preference, protocol;
    } rows[] = {{0, 3, 2, 255, 0, 0}, {1, 0, 0, 0, 1, 1}, {2, 2, 1, 1, 2, 2},
                {3, 3, 2, 2, 3, 3},   {4, 3, 2, 2, 0, 0}, {255, 3, 2, 2, 3, 0}};
    for (const auto& row : rows) {
        const auto ip = static_cast<IPType>(row.value);
        EXPECT_EQ(convertToRavPdpType(ip), row.pdp) << row.value;
        EXPECT_EQ(convertToRavProfilePdnType(ip), row.pdn) << row.value;
        EXPECT_EQ(convertToRavCommonPdpType(ip), row.common) << row.value;
        const auto auth = static_cast<AuthType>(row.value);
        EXPECT_EQ(convertToRavAuthPref(auth), row.preference) << row.value;
        EXPECT_EQ(convertToRavAuthProtocol(auth), row.protocol) << row.value;
        EXPECT_EQ(convertToRavPdnLevelAuthProtocol(auth), row.protocol) << row.value;
        EXPECT_EQ(static_cast<int>(convertToAuthType(static_cast<uint8_t>(row.value))),
                  row.preference);
        const auto protocol = static_cast<wds_profile_auth_protocol_enum_v01>(row.value);
        EXPECT_EQ(static_cast<int>(convertToAuthType(protocol)), row.protocol);
    }
    EXPECT_EQ(log.texts(), std::vector<std::string>());
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
    for (const uint32_t notOneType : {0U, 3U, 0x1000U, 0x80000000U, 0xFFFFFFFFU}) {
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

    std::string all;
    std::string lowered;
    for (int byte = 0; byte < 256; ++byte) {
        all += static_cast<char>(byte);
        lowered += static_cast<char>(byte >= 'A' && byte <= 'Z' ? byte + 0x20 : byte);
    }
    EXPECT_EQ(convertToLower(all), lowered);
    EXPECT_EQ(convertToLower(""), "");
}

}  // namespace
}  // namespace kiv
