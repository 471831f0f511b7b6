#include <memory>
#include <string>

#include "LoggedTest.h"
#include "ModemProfile.h"
#include "Profiles.h"

namespace kiv {
namespace {

using namespace test;
using Response = wds_get_profile_settings_resp_msg_v01;
using Settings = wds_profile_settings_type_v01;

using ModemProfileRecords = LoggedTest;

/// A record with every 3GPP member, some at their limits, and the profile that it stands for.
Settings record3gpp() {
    auto s = recordOf<Settings>(0);
    setMember(s.apn_type_mask_valid, s.apn_type_mask, UINT64_C(0x8000000000000102));
    setMember(s.clat_enabled_valid, s.clat_enabled, 1);
    setText(s.profile_name_valid, s.profile_name, "Name");
    setText(s.apn_name_valid, s.apn_name, std::string(150, 'a'));
    setText(s.user_name_valid, s.user_name, "Bob");
    setText(s.password_valid, s.password, "Pw");
    setMember(s.pdp_type_valid, s.pdp_type, 3);
    setMember(s.override_home_pdp_type_valid, s.override_home_pdp_type, 1);
    setMember(s.lte_roaming_pdp_type_valid, s.lte_roaming_pdp_type, 0);
    setMember(s.umts_roaming_pdp_type_valid, s.umts_roaming_pdp_type, 2);
    setMember(s.max_pdn_conn_per_block_valid, s.max_pdn_conn_per_block, 65535);
    setMember(s.max_pdn_conn_timer_valid, s.max_pdn_conn_timer, 2);
    setMember(s.pdn_req_wait_interval_valid, s.pdn_req_wait_interval, 3);
    setMember(s.support_emergency_calls_valid, s.support_emergency_calls, 1);
    setMember(s.apn_disabled_valid, s.apn_disabled, 0);
    setMember(s.auth_preference_valid, s.auth_preference, 3);
    setMember(s.apn_class_valid, s.apn_class, 200);
    return s;
}

const std::string kSettings3gpp =
    "ApnName=" + std::string(150, 'a') +
    ",UserName=Bob,Password=Pw,AuthType=PAP_CHAP,CommonIPType=V4V6,"
    "ApnTypesMask=9223372036854776066,ApnClass=200,IsClatEnabled=1,OverrideHomeIPType=V6,"
    "LteRoamIP=V4,UmtsRoamIP=V4V6,MaxPdnsConnPerBlock=65535,MaxPdnConnTimer=2,"
    "PdnReqWaitInterval=3,IsApnDisabled=0,IsEmergencySupported=1,ProfileName=Name,";

Settings record3gpp2() {
    auto s = recordOf<Settings>(0);
    setText(s.apn_string_3gpp2_valid, s.apn_string_3gpp2, "cdma");
    setText(s.user_id_3gpp2_valid, s.user_id_3gpp2, "Bob");
    setText(s.pdn_level_user_id_3gpp2_valid, s.pdn_level_user_id_3gpp2, "Bob");
    setText(s.password_3gpp2_valid, s.password_3gpp2, "Pw");
    setText(s.pdn_level_password_3gpp2_valid, s.pdn_level_password_3gpp2, "Pw");
    setMember(s.pdn_type_3gpp2_valid, s.pdn_type_3gpp2, 1);
    setMember(s.auth_protocol_3gpp2_valid, s.auth_protocol_3gpp2, 3);
    setMember(s.pdn_level_auth_protocol_3gpp2_valid, s.pdn_level_auth_protocol_3gpp2, 3);
    setMember(s.apn_class_3gpp2_valid, s.apn_class_3gpp2, 2);
    return s;
}

TEST_F(ModemProfileRecords, AreReadAndWrittenToTheByte) {
    auto response = recordOf<Response>(0);
    auto add = recordOf<wds_create_profile_req_msg_v01>(0);
    auto modify = recordOf<wds_modify_profile_settings_req_msg_v01>(0);
    setMember(response.persistent_valid, response.persistent, 2);
    setMember(add.persistent_valid, add.persistent, 1);

    response.settings = add.settings = modify.settings = record3gpp();
    const Modem3gppProfile profile(0x105, response);
    EXPECT_EQ(profile.dump(), "TechType=3GPP,ProfileId=261," + kSettings3gpp);
    modify.profile = {WDS_PROFILE_TYPE_3GPP_V01, 5};
    EXPECT_EQ(firstDifference(profile.constructAddRequest(), add), sizeof(add));
    EXPECT_EQ(firstDifference(profile.constructModifyRequest(), modify), sizeof(modify));

    response.settings = add.settings = modify.settings = record3gpp2();
    Modem3gpp2Profile profile2(255, response);
    EXPECT_EQ(profile2.dump(),
              "TechType=3GPP2,ProfileId=255,ApnName=cdma,UserName=Bob,"
              "AuthType=PAP_CHAP,CommonIPType=V6,ApnClass=ADMN,");
    profile2.setPassword("Pw");  // It is never read.
    profile2.setIsPersistent(false);
    add.profile_type = WDS_PROFILE_TYPE_3GPP2_V01;
    add.persistent = 0;
    modify.profile = {WDS_PROFILE_TYPE_3GPP2_V01, 255};
    EXPECT_EQ(firstDifference(profile2.constructAddRequest(), add), sizeof(add));
    EXPECT_EQ(firstDifference(profile2.constructModifyRequest(), modify), sizeof(modify));
}

TEST_F(ModemProfileRecords, TextsAndNumbersAreCutWhenWritten) {
    Modem3gppProfile profile{ProfileParams()};
    profile.setApnName(std::string(151, 'a'));
    profile.setUserName(std::string("me\0junk", 7));
    profile.setPassword(std::string("\0junk", 5));
    profile.setMaxPdnConnTimer(0x10002);
    auto s = recordOf<Settings>(0);
    setText(s.apn_name_valid, s.apn_name, std::string(150, 'a'));
    setText(s.user_name_valid, s.user_name, "me");
    setText(s.password_valid, s.password, "");
    setMember(s.max_pdn_conn_timer_valid, s.max_pdn_conn_timer, 2);
    EXPECT_EQ(firstDifference(profile.constructAddRequest().settings, s), sizeof(s));
}

TEST_F(ModemProfileRecords, MembersWithoutTheirFlagAreNotRead) {
    auto response = recordOf<Response>(0);
    response.persistent = 1;
    response.settings.lte_roaming_pdp_type = WDS_COMMON_PDP_TYPE_IPV6_V01;
    response.settings.apn_name[0] = response.settings.apn_string_3gpp2[0] = 'a';
    EXPECT_FALSE(Modem3gppProfile(0, response).getIsPersistent());
    EXPECT_EQ(Modem3gppProfile(0, response).dump(), "TechType=3GPP,ProfileId=0,");
    EXPECT_EQ(Modem3gpp2Profile(0, response).dump(), "TechType=3GPP2,ProfileId=0,");
    response.persistent_valid = 1;
    EXPECT_TRUE(Modem3gppProfile(0, response).getIsPersistent());
}

TEST_F(ModemProfileRecords, RubbishIsReadWithinItsBounds) {
    const auto response = std::make_unique<Response>(recordOf<Response>(0xFF));
    const auto full = [](size_t size) { return std::string(size, '\xFF'); };
    const Modem3gppProfile profile(255, *response);
    EXPECT_EQ(profile.getApnName(), full(WDS_APN_NAME_SIZE_V01));
    EXPECT_EQ(profile.getProfileName(), full(WDS_PROFILE_NAME_SIZE_V01));
    EXPECT_EQ(Modem3gpp2Profile(255, *response).getUserName(), full(WDS_USER_NAME_SIZE_V01));
}

}  // namespace
}  // namespace kiv
