#include "ApnFile.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace kiv::kivctl {
namespace {

using Texts = std::vector<std::string>;

const std::string kGood = "mcc='262' mnc='01' apn='a' ";

/// A file with that one <apn> element, in line 3.
ApnFile withEntry(const std::string& attributes) {
    return parseApnFile("f.xml",
                        "<?xml version=\"1.0\"?>\n<apns>\n<apn " + attributes + "/>\n</apns>");
}

void expectSettings(const std::string& attributes, const std::string& dump) {
    const ApnFile file = withEntry(attributes);
    EXPECT_EQ(file.problems, Texts{}) << attributes;
    ASSERT_EQ(file.entryCount(), 1U) << attributes;
    EXPECT_EQ(file.operators[0].entries[0].params.dump(), dump) << attributes;
}

TEST(ApnFileTest, attributeBecomesTheSettingThatItStandsFor) {
    const std::pair<std::string, std::string> cases[] = {
        {"carrier='x' mmsc='y' authtyp='9' user='' skip_464xlat='-1'", ""},
        {"user='u' password='P '", "UserName=u,Password=P ,"},
        {"authtype='0'", "AuthType=NONE,"},
        {"authtype='3'", "AuthType=PAP_CHAP,"},
        {"protocol='IPV4V6'", "HomeIPType=V4V6,"},
        {"protocol='IP' roaming_protocol='IPV6'", "HomeIPType=V4,RoamIPType=V6,"},
        {"max_conns='0' max_conns_time='65535' wait_time='7'",
         "MaxPdnsConnPerBlock=0,MaxPdnConnTimer=65535,PdnReqWaitInterval=7,"},
        {"carrier_enabled='false'", "IsApnDisabled=true,"},
        {"carrier_enabled='TRUE'", "IsApnDisabled=false,"},
        {"skip_464xlat='0'", "IsClatEnabled=true,"},
        {"skip_464xlat='true'", "IsClatEnabled=false,"},
        {"type=' SUPL , Default'", "ApnTypesMask=DEFAULT|SUPL|,"},
        {"type='mms,dun,hipri,fota,ims,cbs,ia,emergency,mcx,xcap'",
         "ApnTypesMask=MMS|DUN|HIPRI|FOTA|IMS|CBS|IA|EMERGENCY|MCX|XCAP|,"},
        {"type='*'",
         "ApnTypesMask=DEFAULT|MMS|SUPL|DUN|HIPRI|FOTA|IMS|CBS|IA|EMERGENCY|MCX|XCAP|,"},
    };
    for (const auto& [attributes, dump] : cases) {
        expectSettings(kGood + attributes, "ApnName=a," + dump);
    }
    const std::pair<std::string, std::string> names[] = {
        {" \ta b ", "a b"},
        {"  ", ""},
        {"&#228;", "\xc3\xa4"},
        {std::string(150, 'x'), std::string(150, 'x')},
    };
    for (const auto& [attribute, name] : names) {
        expectSettings("mcc='' mnc='' apn='" + attribute + "'", "ApnName=" + name + ",");
    }
}

TEST(ApnFileTest, whatIsWrongWithAnEntryIsToldWithItsLine) {
    const std::string notPlmn = " are not 3 and 2 or 3 digits, nor both empty";
    const std::pair<std::string, std::string> cases[] = {
        {kGood + "type='default,gold'", "unknown APN type 'gold'"},
        {kGood + "type='default,'", "unknown APN type ''"},
        {kGood + "authtype='4'", "authtype is '4', not a number from 0 to 3"},
        {kGood + "protocol='PPP'", "protocol is 'PPP', not IP, IPV6 or IPV4V6"},
        {kGood + "roaming_protocol='ip'", "roaming_protocol is 'ip', not IP, IPV6 or IPV4V6"},
        {kGood + "max_conns='65536'", "max_conns is '65536', not a number from 0 to 65535"},
        {kGood + "max_conns_time='-1'", "max_conns_time is '-1', not a number from 0 to 65535"},
        {kGood + "wait_time='7s'", "wait_time is '7s', not a number from 0 to 65535"},
        {kGood + "carrier_enabled='no'", "carrier_enabled is 'no', not true or false"},
        {kGood + "skip_464xlat='2'", "skip_464xlat is '2', not -1, 0 or 1"},
        {kGood + "user='" + std::string(128, 'u') + "'", "user is longer than 127 bytes"},
        {kGood + "password='" + std::string(128, 'p') + "'", "password is longer than 127 bytes"},
        {kGood + "apn='b'", "attribute apn is given twice"},
        {"mcc='2620' mnc='01' apn='" + std::string(151, 'a') + "'",
         "the APN name is longer than 150 bytes\nf.xml:3: mcc '2620' and mnc '01'" + notPlmn},
        {"mcc='262' mnc='' apn='a'", "mcc '262' and mnc ''" + notPlmn},
        {"mcc='262' mnc='0x&#1;' apn='a'", "mcc '262' and mnc '0x\\x01'" + notPlmn},
    };
    for (const auto& [attributes, problems] : cases) {
        const ApnFile file = withEntry(attributes);
        std::string found;
        for (const std::string& problem : file.problems) {
            found += (found.empty() ? "" : "\n") + problem;
        }
        EXPECT_EQ(found, "f.xml:3: " + problems);
        EXPECT_EQ(file.entryCount(), 0U) << attributes;
    }
}

TEST(ApnFileTest, entriesAreGroupedByOperatorInTheOrderOfTheFile) {
    const ApnFile file = parseApnFile("f.xml",
                                      "<apns>\n"
                                      "<apn mcc='262' mnc='01' apn='a'/><apn mcc='262'/>\n"
                                      "<!-- \n --><apn mcc='' mnc='' apn='b'/>\n"
                                      "<other/><apn mcc='262' mnc='01' apn='a'/>\n"
                                      "<apn mcc='262'\nmnc='010' apn='c'/>\n"
                                      "</apns>");
    Texts found;
    for (const Operator& one : file.operators) {
        for (const ApnEntry& entry : one.entries) {
            found.push_back(one.plmn + ":" + entry.params.getApnName() + ":" +
                            std::to_string(entry.line));
        }
    }
    EXPECT_EQ(found, (Texts{"26201:a:2", "26201:a:5", ":b:4", "262010:c:6"}));
    EXPECT_EQ(file.problems,
              (Texts{"f.xml:2: attribute mnc is missing", "f.xml:2: attribute apn is missing"}));
    EXPECT_EQ(file.find("262010"), &file.operators[2]);
}

TEST(ApnFileTest, fileThatIsNoApnFileIsRefusedWithTheLine) {
    const std::pair<std::string, std::string> cases[] = {
        {"", "f.xml:1: "},
        {"<apns>\n<apn mcc='1'\n</apns>", "f.xml:3: "},
        {"\n<other/>", "f.xml:2: the root element is 'other', not 'apns'"},
    };
    for (const auto& [text, message] : cases) {
        try {
            parseApnFile("f.xml", text);
            ADD_FAILURE() << "accepted: " << text;
        } catch (const ApnFileError& error) {
            EXPECT_EQ(std::string(error.what()).substr(0, message.size()), message);
        }
    }
    EXPECT_THROW(readApnFile("/"), ApnFileError) << "a directory";
}

}  // namespace
}  // namespace kiv::kivctl
