#include "ApnFile.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "Failure.h"

namespace kiv::kivctl {
namespace {

const std::string kGood = "mcc='262' mnc='01' apn='a' ";
const std::string kAllTypes =
    "ApnTypesMask=DEFAULT|MMS|SUPL|DUN|HIPRI|FOTA|IMS|CBS|IA|EMERGENCY|MCX|XCAP|,";

/// That one <apn> element, in line 3.
ApnEntry entryOf(const std::string& attributes) {
    const std::string text = "<?xml version=\"1.0\"?>\n<apns>\n<apn " + attributes + "/>\n</apns>";
    return parseApnFile("f.xml", text).entries.at(0);
}

std::string flawsOf(const ApnEntry& entry) {
    std::string text;
    for (const Flaw& flaw : entry.flaws) {
        text += (text.empty() ? "" : "\n") + flaw.what;
    }
    return text;
}

TEST(ApnFileTest, attributeBecomesTheSettingThatItStandsFor) {
    const std::pair<std::string, std::string> cases[] = {
        {"type='mms' carrier='x' mmsc='y' authtyp='9' user='' skip_464xlat='-1' authtype='-1'",
         "ApnTypesMask=MMS|,"},
        {"type='mms' user='u' password='P ' authtype='2'",
         "UserName=u,Password=P ,AuthType=CHAP,ApnTypesMask=MMS|,"},
        {"type='mms' protocol='IPV4' roaming_protocol='ipv6'",
         "HomeIPType=V4,RoamIPType=V6,ApnTypesMask=MMS|,"},
        {"type='mms' max_conns='0' max_conns_time='65535' wait_time=' 7 '",
         "ApnTypesMask=MMS|,MaxPdnsConnPerBlock=0,MaxPdnConnTimer=65535,PdnReqWaitInterval=7,"},
        {"type='mms' carrier_enabled='FALSE'", "ApnTypesMask=MMS|,IsApnDisabled=true,"},
        {"type='mms' skip_464xlat='0'", "ApnTypesMask=MMS|,IsClatEnabled=true,"},
        {"type=' SUPL ,, Default,'", "ApnTypesMask=DEFAULT|SUPL|,"},
        {"type=''", kAllTypes},
        {"type='mms,*'", kAllTypes},
        {"type=' ,'", kAllTypes},
        {"", kAllTypes},
    };
    for (const auto& [attributes, dump] : cases) {
        const ApnEntry entry = entryOf(kGood + attributes);
        EXPECT_EQ(entry.params.dump(), "ApnName=a," + dump) << attributes;
        EXPECT_EQ(flawsOf(entry), "") << attributes;
        EXPECT_TRUE(entry.isUsable);
    }
    const std::string longest(150, 'x');
    EXPECT_EQ(entryOf("carrier_id='9' type='ia' apn=' " + longest + " '").params.dump(),
              "ApnName=" + longest + ",ApnTypesMask=IA|,");
    EXPECT_FALSE(entryOf("mcc='262' mnc='01' apn=''").params.hasApnName());
}

TEST(ApnFileTest, entryIsLeftOutOnlyIfNobodyCanSayWhomItServesOrWhatItAsks) {
    const struct {
        std::string attributes;
        bool isUsable;
        std::string flaws;
    } cases[] = {
        {kGood + "type='default,gold'", true, "type: 'gold' is not an APN type"},
        {kGood + "type='gold'", false, "type: 'gold' is not an APN type"},
        {kGood + "authtype='4'", false, "authtype: '4' is not a number from 0 to 3"},
        {kGood + "protocol='PPP'", false, "protocol: 'PPP' is not IP, IPV6 or IPV4V6"},
        {kGood + "carrier_enabled='maybe'", false, "carrier_enabled: 'maybe' is not true or false"},
        {kGood + "max_conns='65536'", true, "max_conns: '65536' is not a number from 0 to 65535"},
        {kGood + "password='" + std::string(128, 'p') + "'", false,
         "password: not at most 127 bytes"},
        {kGood + "carrier_id='x'", true, "carrier_id: 'x' is not a number"},
        {kGood + "bearer='14|99|x'", true, "bearer: '99' is not a known technology"},
        {kGood + "bearer='99'", false, "bearer: '99' is not a known technology"},
        {kGood + "mvno_type='spn'", false, "mvno_type 'spn' with mvno_match_data '' names no MVNO"},
        {kGood + "mvno_type='imsi' mvno_match_data='26201a'", false,
         "mvno_type 'imsi' with mvno_match_data '26201a' names no MVNO"},
        {kGood + "mvno_type='spn' carrier_id='5'", true,
         "mvno_type 'spn' with mvno_match_data '' names no MVNO"},
        {"mcc='2620' mnc='01' apn='a'", false,
         "mcc '2620' and mnc '01' are not 3 and 2 or 3 digits"},
        {"mcc='2620' apn='a' carrier_id='5'", true,
         "mcc '2620' and mnc '' are not 3 and 2 or 3 digits"},
        {"mcc='' mnc='' apn='a'", false,
         "neither mcc and mnc nor carrier_id says whom the entry serves"},
    };
    for (const auto& one : cases) {
        const ApnEntry entry = entryOf(one.attributes);
        EXPECT_EQ(flawsOf(entry), one.flaws) << one.attributes;
        EXPECT_EQ(entry.isUsable, one.isUsable) << one.attributes;
    }
}

TEST(ApnFileTest, technologiesSayWhichStepsAnEntryServes) {
    const struct {
        const char* attributes;
        bool lte;
        bool for3gpp;
    } cases[] = {
        {"", true, true},
        {"network_type_bitmask='0' bearer_bitmask='' bearer='0'", true, true},
        {"network_type_bitmask='13'", true, true},
        {"network_type_bitmask='14'", false, false},
        {"network_type_bitmask='1|2|8'", false, true},
        {"network_type_bitmask='4|20'", true, true},
        {"network_type_bitmask='18' bearer='14'", false, false},
        {"network_type_bitmask='0' bearer='4'", false, false},
        {"bearer_bitmask='14'", true, true},
        {"bearer_bitmask='13' bearer='14'", false, false},
        {"bearer='8'", false, false},
        {"bearer='11'", false, true},
        {"bearer='18'", false, false},
    };
    for (const auto& one : cases) {
        const ApnEntry entry = entryOf(kGood + one.attributes);
        EXPECT_EQ(entry.admitsLte, one.lte) << one.attributes;
        EXPECT_EQ(entry.admits3gpp, one.for3gpp) << one.attributes;
    }
}

TEST(ApnFileTest, textIsReadInItsEncodingOrRefusedWithItsPlace) {
    const auto wide = [](const std::string& text) {
        std::string result("\xff\xfe", 2);
        for (const char c : text) {
            result += {c, '\0'};
        }
        return result;
    };
    const std::string good = "<apns><apn mcc='262' mnc='01' apn='a&amp;b&#x41;&e;'/></apns>";
    const std::string entity = "<!DOCTYPE apns [<!ENTITY e \"E\">]>";
    for (const std::string& text :
         {entity + good, "\xef\xbb\xbf" + entity + good, wide(entity + good),
          "<?xml version='1.0' encoding='utf-8'?>" + entity + good}) {
        EXPECT_EQ(parseApnFile("f", text).entries.at(0).params.getApnName(), "a&bAE");
    }
    const std::pair<std::string, std::string> refused[] = {
        {"", "f:1:1: no element found"},
        {"<apns>\n<apn mcc='1'\n</apns>", "f:3:1: not well-formed (invalid token)"},
        {"\n<other/>", "f:2:1: the root element is 'other', not 'apns'"},
        {"<apns/>\n<apns/>", "f:2:1: junk after document element"},
        {"<apns/> x", "f:1:9: junk after document element"},
        {good, "f:1:7: undefined entity"},
        {"<!DOCTYPE apns SYSTEM 'x'>" + good, "f:1:23: document is not standalone"},
        {"<?xml version='1.0' encoding='latin1'?><apns/>",
         "f:1:1: the encoding is 'latin1', neither UTF-8 nor UTF-16"},
        {"<apns><apn apn='1' apn='2'/></apns>", "f:1:20: duplicate attribute"},
        {"<apns><x><apn/></x></apns>", "f: no <apn> element within <apns>"},
    };
    for (const auto& [text, message] : refused) {
        try {
            parseApnFile("f", text);
            ADD_FAILURE() << text;
        } catch (const Failure& failure) {
            EXPECT_EQ(failure.what(), message) << text;
            EXPECT_EQ(failure.status, kCannotRead);
        }
    }
    EXPECT_THROW(readApnFile("/"), Failure) << "a directory";
}

}  // namespace
}  // namespace kiv::kivctl
