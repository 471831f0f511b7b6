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
        {"protocol='IP' roaming_protocol='IPV6'", "HomeIPType=V4,RoamIPType=V6,"},
        {"max_conns='0' max_conns_time='65535' wait_time='7'",
         "MaxPdnsConnPerBlock=0,MaxPdnConnTimer=65535,PdnReqWaitInterval=7,"},
        {"carrier_enabled='false'", "IsApnDisabled=true,"},
        {"skip_464xlat='0'", "IsClatEnabled=true,"},
        {"type=' SUPL , Default'", "ApnTypesMask=DEFAULT|SUPL|,"},
        {"type='mms,dun,hipri,fota,ims,cbs,ia,emergency,mcx,xcap'",
         "ApnTypesMask=MMS|DUN|HIPRI|FOTA|IMS|CBS|IA|EMERGENCY|MCX|XCAP|,"},
        {"type='*'",
         "ApnTypesMask=DEFAULT|MMS|SUPL|DUN|HIPRI|FOTA|IMS|CBS|IA|EMERGENCY|MCX|XCAP|,"},
    };
    for (const auto& [attributes, dump] : cases) {
        expectSettings(kGood + attributes, "ApnName=a," + dump);
    }
    const std::string longest(150, 'x');
    expectSettings("mcc='' mnc='' apn=' " + longest + " '", "ApnName=" + longest + ",");
}

TEST(ApnFileTest, whatIsWrongWithAnEntryIsToldWithItsLine) {
    const std::string notPlmn = " are not 3 and 2 or 3 digits, nor both empty";
    const std::pair<std::string, std::string> cases[] = {
        {kGood + "type='default,gold'", "unknown APN type 'gold'"},
        {kGood + "authtype='4'", "authtype is '4', not a number from 0 to 3"},
        {kGood + "protocol='PPP'", "protocol is 'PPP', not IP, IPV6 or IPV4V6"},
        {kGood + "max_conns='65536'", "max_conns is '65536', not a number from 0 to 65535"},
        {kGood + "password='" + std::string(128, 'p') + "'", "password is longer than 127 bytes"},
        {kGood + "apn='b'", "attribute apn is given twice"},
        {"mcc='2620' mnc='01' apn='" + std::string(151, 'a') + "'",
         "the APN name is longer than 150 bytes\nf.xml:3: mcc '2620' and mnc '01'" + notPlmn},
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
}

TEST(ApnFileTest, fileThatIsNoApnFileIsRefused) {
    for (const char* text : {"", "<apns>\n<apn mcc='1'\n</apns>", "\n<other/>"}) {
        EXPECT_THROW(parseApnFile("f.xml", text), ApnFileError) << text;
    }
    EXPECT_THROW(readApnFile("/"), ApnFileError) << "a directory";
}

}  // namespace
}  // namespace kiv::kivctl
