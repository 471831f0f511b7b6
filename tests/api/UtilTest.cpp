#include "Util.h"

#include <gmock/gmock.h>

#include <map>
#include <thread>

#include "Engine.h"

namespace kiv::test {
namespace {

using testing::SizeIs;

constexpr wds_profile_type_enum_v01 k3gpp = WDS_PROFILE_TYPE_3GPP_V01;
constexpr wds_profile_type_enum_v01 k3gpp2 = WDS_PROFILE_TYPE_3GPP2_V01;
constexpr wds_pdp_type_enum_v01 kV4 = WDS_PDP_TYPE_IPV4_V01;
constexpr wds_pdp_type_enum_v01 kV6 = WDS_PDP_TYPE_IPV6_V01;
constexpr wds_pdp_type_enum_v01 kV4V6 = WDS_PDP_TYPE_IPV4V6_V01;

ProfileParams params(const std::string& apnName, std::optional<IPType> home = std::nullopt,
                     std::optional<ApnTypes> types = std::nullopt) {
    ProfileParams result;
    if (!apnName.empty()) {
        result.setApnName(apnName);
    }
    if (home) {
        result.setHomeIPType(*home);
    }
    if (types) {
        result.setApnTypesMask(toMask(*types));
    }
    return result;
}

/// The policies on a modem whose profiles another party made.
class UtilTest : public EngineTest {
protected:
    uint8_t has(const wds_profile_settings_type_v01& settings,
                wds_profile_type_enum_v01 type = k3gpp) {
        return modem().createProfile(type, settings, true).value();
    }
    uint8_t hasNamed(const std::string& profileName, const std::string& apnName,
                     wds_pdp_type_enum_v01 pdpType = kV4) {
        auto settings = settings3gpp(apnName, pdpType);
        settings.profile_name_valid = 1;
        profileName.copy(settings.profile_name, sizeof(settings.profile_name) - 1);
        return has(settings);
    }
    /// Reads the modem, which must have told all it did before, so that nothing comes in between.
    void load(bool updateAllowed = false) {
        ASSERT_TRUE(modem().waitForDeliveries(kPatience));
        refresh();
        log.clear();
        util.setProfileUpdateAllowed(updateAllowed);
    }
    static int id(const std::shared_ptr<IProfileKey>& key) {
        return key ? key->getProfileId() : -1;
    }
    wds_profile_settings_type_v01 settings(int index) {
        return modem().profile(k3gpp, static_cast<uint8_t>(index)).value().settings;
    }

    Util util;
};

TEST_F(UtilTest, SetupDataCallPrefersTheExactIPTypeThenALooseOneThenANewProfile) {
    has(settings3gpp("net", kV4V6));
    has(settings3gpp("net", kV6));
    has(settings3gpp("six", kV6));
    load();
    const auto find = [this](const ProfileParams& wanted) {
        return util.findOrCreateProfileForSetupDataCall(TechType::Tech3gpp, wanted);
    };
    EXPECT_EQ(id(find(params("NET", IPType::V6))), 2);
    EXPECT_EQ(id(find(params("six", IPType::V4V6))), 3);
    const auto created = find(params("six", IPType::V4));
    EXPECT_EQ(id(created), 4);
    EXPECT_FALSE(modem().profile(k3gpp, 4)->persistent);
    // Without a name, any profile of the IP type will do.
    EXPECT_EQ(settings(id(find(params("", IPType::V6)))).pdp_type, kV6);
}

TEST_F(UtilTest, SetupDataCallRewritesWhatItFindsIfUpdatesAreAllowed) {
    has(settings3gpp("net", kV6));
    load(true);
    const auto wanted = params("net", IPType::V4, ApnTypes::MMS);
    EXPECT_EQ(id(util.findOrCreateProfileForSetupDataCall(TechType::Tech3gpp, wanted)), 1);
    EXPECT_EQ(settings(1).pdp_type, kV4);
    EXPECT_EQ(settings(1).apn_type_mask, WDS_APN_TYPE_MASK_MMS_V01);
}

TEST_F(UtilTest, SetupDataCallLooksAtTheUserNameFor3gpp2Only) {
    wds_profile_settings_type_v01 stored{};
    stored.user_id_3gpp2_valid = 1;
    strcpy(stored.user_id_3gpp2, "other");
    has(stored, k3gpp2);
    has(settings3gpp(""));
    load();
    ProfileParams wanted;
    wanted.setUserName("me");
    EXPECT_EQ(id(util.findOrCreateProfileForSetupDataCall(TechType::Tech3gpp, wanted)), 1);
    EXPECT_EQ(id(util.findOrCreateProfileForSetupDataCall(TechType::Tech3gpp2, wanted)), 1);
}

TEST_F(UtilTest, EmergencyTakesByNameThenAnyThenCreatesAPersistentOne) {
    has(settings3gpp("sos"));  // which is no emergency profile
    load();
    auto wanted = params("SOS", IPType::V4V6, ApnTypes::DEFAULT | ApnTypes::IMS);
    auto created = util.findOrCreateProfileForEmergencyDataCall(wanted);
    ASSERT_THAT(table(), SizeIs(2));
    EXPECT_TRUE(table()[1].persistent);
    EXPECT_EQ(settings(2).apn_type_mask, WDS_APN_TYPE_MASK_EMERGENCY_V01);
    EXPECT_EQ(settings(2).support_emergency_calls, 1);
    util.setProfileUpdateAllowed(true);
    EXPECT_EQ(id(util.findOrCreateProfileForEmergencyDataCall(params("sos", IPType::V4))), 2);
    EXPECT_EQ(id(util.findOrCreateProfileForEmergencyDataCall(params("other", IPType::V4))), 2);
    EXPECT_EQ(settings(2).pdp_type, kV4V6);  // used as it is
}

TEST_F(UtilTest, LteAttachGoesFromTheBestProfileToANewOne) {
    const struct {
        const char* what;
        std::function<void()> prepare;
        bool updateAllowed;
        const char* line;
        int id;
        const char* apnName;
        wds_pdp_type_enum_v01 pdpType;
        const char* profileName;
    } rows[] = {
        {"exact", [this] { hasNamed("", "net"); }, false,
         "kiv Found an exact match modem or KIV IA profile for attach", 1, "net", kV4, ""},
        {"first of two exact ones will not do",
         [this] {
             hasNamed("kiv_profile", "net");
             hasNamed("kiv_profile", "net");
             hasNamed("", "net", kV4V6);
         },
         false, "It is KIV_IA profile or modem profile.", 3, "net", kV4V6, ""},
        {"loose one of ours", [this] { hasNamed("kiv_profile_ia", "net", kV4V6); }, false,
         "kiv Found a KIV IA profile that matches APN name for attach", 1, "net", kV4,
         "kiv_profile_ia"},
        {"loose and updated", [this] { hasNamed("", "net", kV6); }, true,
         "It is KIV_IA profile or modem profile.", 1, "net", kV4, ""},
        {"loose but for other use", [this] { hasNamed("kiv_profile", "net", kV6); }, true,
         "It is not a KIV_IA profile. so skipping it.", 2, "net", kV4, "kiv_profile_ia"},
        {"any attach profile", [this] { hasNamed("kiv_profile_ia", "old", kV6); }, false,
         "kiv Found any KIV IA profile for attach", 1, "net", kV4, "kiv_profile_ia"},
        {"none", [] {}, false, "kiv KIV IA profile created for attach", 1, "net", kV4,
         "kiv_profile_ia"},
    };
    auto wanted = params("Net", IPType::V4, ApnTypes::IA);
    wanted.setUserName("me");
    wanted.setPassword("secret");
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        modem().factoryReset();
        row.prepare();
        load(row.updateAllowed);
        const auto key = util.findOrCreateProfileForLteAttach(wanted);
        EXPECT_EQ(id(key), row.id);
        EXPECT_TRUE(log.contains(row.line));
        const auto held = settings(row.id);
        EXPECT_STREQ(held.apn_name, row.apnName);
        EXPECT_EQ(held.pdp_type, row.pdpType);
        EXPECT_STREQ(held.profile_name, row.profileName);
        EXPECT_STREQ(held.user_name, "me");
        EXPECT_STREQ(held.password, "secret");
        EXPECT_EQ(held.apn_type_mask, WDS_APN_TYPE_MASK_IA_V01);
        EXPECT_TRUE(modem().profile(k3gpp, static_cast<uint8_t>(row.id))->persistent);
    }
}

TEST_F(UtilTest, LteAttachLooksAtTheRoamingType) {
    auto stored = settings3gpp("net", kV4V6);
    stored.lte_roaming_pdp_type_valid = stored.umts_roaming_pdp_type_valid = 1;
    stored.lte_roaming_pdp_type = stored.umts_roaming_pdp_type = WDS_COMMON_PDP_TYPE_IPV4V6_V01;
    has(stored);
    load();
    auto wanted = params("net", IPType::V4V6);
    wanted.setRoamIPType(IPType::V4);
    EXPECT_EQ(id(util.findOrCreateProfileForLteAttach(wanted)), 1);
    EXPECT_TRUE(util.matchLteAttachProfileId(1, wanted));
    wanted.setPassword("another");
    EXPECT_FALSE(util.matchLteAttachProfileId(1, wanted));
    EXPECT_EQ(settings(1).lte_roaming_pdp_type, WDS_COMMON_PDP_TYPE_IPV4V6_V01);
    util.setProfileUpdateAllowed(true);
    EXPECT_EQ(id(util.findOrCreateProfileForLteAttach(wanted)), 1);
    EXPECT_EQ(settings(1).lte_roaming_pdp_type, WDS_COMMON_PDP_TYPE_IPV4_V01);
    EXPECT_EQ(settings(1).override_home_pdp_type, WDS_COMMON_PDP_TYPE_IPV4V6_V01);
}

/// Another client deletes the profile between the policy's search and its reading of the profile.
TEST_F(UtilTest, LteAttachKeepsALooseMatchThatItCannotReadUnlessThereIsAnAttachProfile) {
    for (const bool hasAttachProfile : {false, true}) {
        SCOPED_TRACE(hasAttachProfile);
        modem().factoryReset();
        hasNamed("", "net", kV4V6);
        if (hasAttachProfile) {
            hasNamed("kiv_profile_ia", "old", kV6);
        }
        load();
        __android_log_set_logger([](const __android_logger_data*, const char* line) {
            if (line == std::string("kiv Found a loose match profile for attach")) {
                std::thread([] {
                    FilterProfileParams first;
                    first.setFilterByProfileId(1);
                    Manager& manager = Manager::getInstance();
                    EXPECT_TRUE(manager.deleteProfile(manager.filter(first).front()));
                }).join();
            }
        });
        const auto key = util.findOrCreateProfileForLteAttach(params("net", IPType::V4));
        __android_log_set_logger([](const __android_logger_data*, const char*) {});
        EXPECT_EQ(id(key), hasAttachProfile ? 2 : 1);
        EXPECT_EQ(manager.getProfile(key).has_value(), hasAttachProfile);
        ASSERT_THAT(table(), SizeIs(hasAttachProfile ? 1 : 0));
        if (hasAttachProfile) {
            EXPECT_STREQ(settings(2).apn_name, "net");
            EXPECT_EQ(settings(2).pdp_type, kV4);
        }
    }
}

TEST_F(UtilTest, LteAttachProfileIdMatchesByWhoseProfileItIs) {
    hasNamed("", "net", kV4V6);
    hasNamed("kiv_profile_ia", "net", kV4V6);
    hasNamed("kiv_profile", "net", kV4V6);
    load();
    const auto matches = [this](int profileId, IPType home) {
        return util.matchLteAttachProfileId(profileId, params("NET", home));
    };
    EXPECT_TRUE(matches(1, IPType::V4));  // loose for a profile that is not ours to change
    EXPECT_FALSE(matches(2, IPType::V4));
    EXPECT_TRUE(matches(2, IPType::V4V6));
    EXPECT_FALSE(matches(3, IPType::V4V6));
    EXPECT_FALSE(matches(9, IPType::V4));
    util.setProfileUpdateAllowed(true);
    EXPECT_FALSE(matches(1, IPType::V4));
}

TEST_F(UtilTest, ApnClassRewritesEveryProfileOfItsClassOrCreatesOne) {
    auto ims = settings3gpp("old");
    ims.apn_class_valid = 1;
    ims.apn_class = static_cast<uint8_t>(ApnClass::IMS);
    has(ims);
    has(ims);
    load();
    ProfileParams wanted = params("ims");
    wanted.setApnClass(ApnClass::IMS);
    ProfileParams other = params("app");
    other.setApnClass(ApnClass::APP);
    util.updateModemProfileByApnClass({wanted, other, params("no class")}, {other});
    ASSERT_THAT(table(), SizeIs(3));
    EXPECT_STREQ(settings(1).apn_name, "ims");
    EXPECT_STREQ(settings(2).apn_name, "ims");
    EXPECT_STREQ(settings(3).apn_name, "app");
    EXPECT_TRUE(table()[2].persistent);
}

TEST_F(UtilTest, ApnTypesMoveBetweenSingleAndDualStackProfiles) {
    using Wanted = std::list<ProfileParams>;
    const Wanted each = {
        params("NET", IPType::V4, ApnTypes::DEFAULT), params("net", IPType::V6, ApnTypes::MMS),
        params("Net", std::nullopt, ApnTypes::SUPL), params("net", IPType::UNKNOWN, ApnTypes::DUN)};
    constexpr uint32_t kDefault = 1, kMms = 4, kDun = 8, kSupl = 16;
    constexpr uint32_t kDual = kDun | kSupl, kAll = kDefault | kMms | kDual, kBefore = 2;
    using Held = std::map<wds_pdp_type_enum_v01, uint64_t>;
    const struct {
        Wanted wanted;
        std::vector<wds_pdp_type_enum_v01> types;
        Held held;
        uint64_t cdma;  // what the 3GPP2 profile gets, which is dual-stack and alone
    } rows[] = {
        {each, {kV4, kV6, kV4V6}, {{kV4, kDefault}, {kV6, kMms}, {kV4V6, kDual}}, kAll},
        {each, {kV6, kV4V6}, {{kV6, kMms}, {kV4V6, kDefault | kDual}}, kAll},
        {each, {kV4, kV4V6}, {{kV4, kDefault}, {kV4V6, kMms | kDual}}, kAll},
        {each, {kV4V6}, {{kV4V6, kAll}}, kAll},
        {each, {kV4, kV6}, {{kV4, kDefault | kDual}, {kV6, kMms | kDual}}, kAll},
        {each, {kV6}, {{kV6, kAll}}, kAll},
        {each, {kV4}, {{kV4, kAll}}, kAll},
        {{each.front()}, {kV4, kV4V6}, {{kV4, kDefault}, {kV4V6, kBefore}}, kDefault},
        {{params("net"), params("", IPType::V4, ApnTypes::DEFAULT)},
         {kV4, kV4V6},
         {{kV4, kBefore}, {kV4V6, kBefore}},
         0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        modem().factoryReset();
        for (const auto type : row.types) {
            auto settings = settings3gpp("net", type);
            settings.apn_type_mask_valid = 1;
            settings.apn_type_mask = kBefore;
            has(settings);
            has(settings);
        }
        wds_profile_settings_type_v01 stored{};
        stored.apn_string_3gpp2_valid = stored.pdn_type_3gpp2_valid = 1;
        strcpy(stored.apn_string_3gpp2, "Net");
        stored.pdn_type_3gpp2 = WDS_PROFILE_PDN_TYPE_IPV4V6_V01;
        has(stored, k3gpp2);
        load();
        util.updateAPNTypeBitmaskOnModemProfile(row.wanted);
        Held held;
        for (const emulator::Profile& profile : table()) {
            const auto both =
                held.emplace(profile.settings.pdp_type, profile.settings.apn_type_mask);
            EXPECT_EQ(both.first->second, profile.settings.apn_type_mask);
        }
        EXPECT_EQ(held, row.held);
        EXPECT_EQ(table(k3gpp2)[0].settings.apn_type_mask, row.cdma);
    }
}

TEST_F(UtilTest, ApnTypesByIpTypeTellWhetherAProfileWasFoundEvenIfTheModemRefuses) {
    has(settings3gpp("net", kV4));
    load();
    const auto update = [this](TechType techType, IPType ipType) {
        return util.updateByIpType(techType, ipType, toMask(ApnTypes::MMS), "Net");
    };
    refuse(RAV_WDS_MODIFY_PROFILE_SETTINGS_REQ_V01);
    EXPECT_TRUE(update(TechType::Tech3gpp, IPType::V4));
    EXPECT_EQ(settings(1).apn_type_mask, 0U);
    EXPECT_TRUE(update(TechType::Tech3gpp, IPType::V4));
    EXPECT_EQ(settings(1).apn_type_mask, WDS_APN_TYPE_MASK_MMS_V01);
    EXPECT_FALSE(update(TechType::Tech3gpp, IPType::V4V6));
    EXPECT_FALSE(update(TechType::Tech3gpp2, IPType::V4));
}

TEST_F(UtilTest, CredentialsReachTheModemByTheirFirst127BytesAndComeBackSo) {
    auto wanted = params("net");
    for (const size_t length : {127, 128, 300}) {
        SCOPED_TRACE(length);
        modem().factoryReset();
        load();
        const std::string name(length, 'n');
        const std::string word(length, 'p');
        wanted.setUserName(name);
        wanted.setPassword(word);
        for (const TechType techType : {TechType::Tech3gpp, TechType::Tech3gpp2}) {
            ASSERT_TRUE(manager.addProfile({wanted, true, techType, false}));
        }
        EXPECT_EQ(settings(1).user_name, name.substr(0, 127));
        EXPECT_EQ(settings(1).password, word.substr(0, 127));
        load();
        for (const auto& key : manager.filter(FilterProfileParams())) {
            EXPECT_EQ(manager.getProfile(key)->getUserName(), name.substr(0, 127));
            // A 3GPP2 password is never read.
            EXPECT_EQ(manager.getProfile(key)->getPassword(),
                      key->getTechType() == TechType::Tech3gpp ? word.substr(0, 127) : "");
        }
    }
}

TEST_F(UtilTest, ApnTypesOfAnApnAreAllOnEachOfItsProfilesIfUpdatesAreAllowed) {
    has(settings3gpp("net", kV4));
    wds_profile_settings_type_v01 stored{};
    stored.apn_string_3gpp2_valid = 1;
    strcpy(stored.apn_string_3gpp2, "net");
    has(stored, k3gpp2);
    load(true);
    util.updateAPNTypeBitmaskOnModemProfile(
        {params("net", IPType::V4, ApnTypes::DEFAULT), params("NET", IPType::V6, ApnTypes::XCAP)});
    const uint64_t both = WDS_APN_TYPE_MASK_DEFAULT_V01 | WDS_APN_TYPE_MASK_XCAP_V01;
    EXPECT_EQ(settings(1).apn_type_mask, both);
    EXPECT_EQ(table(k3gpp2).back().settings.apn_type_mask, both);
}

}  // namespace
}  // namespace kiv::test
