#include "ApnFile.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace kiv::kivctl {
namespace {

using Texts = std::vector<std::string>;

/// A file with that one <apn> element, in line 3.
ApnFile withEntry(const std::string& attributes) {
    return parseApnFile("f.xml",
                        "<?xml version=\"1.0\"?>\n<apns>\n<apn " + attributes + "/>\n</apns>");
}

/// The dump of the settings that the attributes give, besides an APN name of "a".
std::string settingsOf(const std::string& attributes) {
    const ApnFile file = withEntry("mcc=\"262\" mnc=\"01\" apn=\"a\" " + attributes);
    EXPECT_EQ(file.problems, Texts{}) << attributes;
    return file.operators.empty() ? "no entry" : file.operators[0].entries[0].params.dump();
}

Texts problemsOf(const std::string& attributes) {
    const ApnFile file = withEntry(attributes);
    EXPECT_EQ(file.entryCount(), file.problems.empty() ? 1U : 0U) << attributes;
    return file.problems;
}

TEST(ApnFileTest, attributeBecomesTheSettingThatItStandsFor) {
    const std::pair<std::string, std::string> cases[] = {
        {"", ""},
        {"carrier=\"x\" mmsc=\"y\" mvno_type=\"spn\" authtyp=\"9\"", ""},
        {"user=\"u\" password=\"P \"", "UserName=u,Password=P ,"},
        {"user=\"\" password=\"\"", ""},
        {"authtype=\"0\"", "AuthType=NONE,"},
        {"authtype=\"3\"", "AuthType=PAP_CHAP,"},
        {"protocol=\"IP\" roaming_protocol=\"IPV6\"", "HomeIPType=V4,RoamIPType=V6,"},
        {"protocol=\"IPV4V6\"", "HomeIPType=V4V6,"},
        {"max_conns=\"0\" max_conns_time=\"65535\" wait_time=\"7\"",
         "MaxPdnsConnPerBlock=0,MaxPdnConnTimer=65535,PdnReqWaitInterval=7,"},
        {"carrier_enabled=\"false\"", "IsApnDisabled=true,"},
        {"carrier_enabled=\"TRUE\"", "IsApnDisabled=false,"},
        {"skip_464xlat=\"-1\"", ""},
        {"skip_464xlat=\"0\"", "IsClatEnabled=true,"},
        {"skip_464xlat=\"true\"", "IsClatEnabled=false,"},
        {"type=\"default\"", "ApnTypesMask=DEFAULT|,"},
        {"type=\" SUPL , Default\"", "ApnTypesMask=DEFAULT|SUPL|,"},
        {"type=\"mms,dun,hipri,fota,ims,cbs,ia,emergency,mcx,xcap\"",
         "ApnTypesMask=MMS|DUN|HIPRI|FOTA|IMS|CBS|IA|EMERGENCY|MCX|XCAP|,"},
        {"type=\"*\"",
         "ApnTypesMask=DEFAULT|MMS|SUPL|DUN|HIPRI|FOTA|IMS|CBS|IA|EMERGENCY|MCX|XCAP|,"},
    };
    for (const auto& [attributes, dump] : cases) {
        EXPECT_EQ(settingsOf(attributes), "ApnName=a," + dump) << attributes;
    }
}

TEST(ApnFileTest, blanksAroundTheApnNameAreDropped) {
    const std::pair<std::string, std::string> cases[] = {
        {" \tInternet ", "Internet"},
        {"", ""},
        {"  ", ""},
        {"a b", "a b"},
        {"&#228;", "\xc3\xa4"},
        {std::string(150, 'x'), std::string(150, 'x')},
    };
    for (const auto& [attribute, name] : cases) {
        const ApnFile file = withEntry("mcc=\"\" mnc=\"\" apn=\"" + attribute + "\"");
        ASSERT_EQ(file.entryCount(), 1U) << attribute;
        EXPECT_TRUE(file.operators[0].entries[0].params.hasApnName());
        EXPECT_EQ(file.operators[0].entries[0].params.getApnName(), name);
    }
}

TEST(ApnFileTest, whatIsWrongWithAnEntryIsToldWithItsLine) {
    const std::string good = "mcc=\"262\" mnc=\"01\" apn=\"a\" ";
    const std::string notPlmn = " are not 3 and 2 or 3 digits, nor both empty";
    const std::pair<std::string, Texts> cases[] = {
        {good + "type=\"default,gold\"", {"unknown APN type 'gold'"}},
        {good + "type=\"default,\"", {"unknown APN type ''"}},
        {good + "authtype=\"4\"", {"authtype is '4', not a number from 0 to 3"}},
        {good + "authtype=\"\"", {"authtype is '', not a number from 0 to 3"}},
        {good + "protocol=\"PPP\"", {"protocol is 'PPP', not IP, IPV6 or IPV4V6"}},
        {good + "roaming_protocol=\"ip\"", {"roaming_protocol is 'ip', not IP, IPV6 or IPV4V6"}},
        {good + "max_conns=\"65536\"", {"max_conns is '65536', not a number from 0 to 65535"}},
        {good + "max_conns_time=\"-1\"", {"max_conns_time is '-1', not a number from 0 to 65535"}},
        {good + "wait_time=\"7s\"", {"wait_time is '7s', not a number from 0 to 65535"}},
        {good + "wait_time=\"99999999999\"",
         {"wait_time is '99999999999', not a number from 0 to 65535"}},
        {good + "carrier_enabled=\"no\"", {"carrier_enabled is 'no', not true or false"}},
        {good + "skip_464xlat=\"2\"", {"skip_464xlat is '2', not -1, 0 or 1"}},
        {good + "user=\"" + std::string(128, 'u') + "\"", {"user is longer than 127 bytes"}},
        {good + "password=\"" + std::string(128, 'p') + "\"",
         {"password is longer than 127 bytes"}},
        {good + "apn=\"b\"", {"attribute apn is given twice"}},
        {"mcc=\"262\" mnc=\"01\" apn=\"" + std::string(151, 'a') + "\"",
         {"the APN name is longer than 150 bytes"}},
        {"mcc=\"26\" mnc=\"01\" apn=\"a\"", {"mcc '26' and mnc '01'" + notPlmn}},
        {"mcc=\"262\" mnc=\"\" apn=\"a\"", {"mcc '262' and mnc ''" + notPlmn}},
        {"mcc=\"262\" mnc=\"0x&#1;\" apn=\"a\"", {"mcc '262' and mnc '0x\\x01'" + notPlmn}},
        {"mcc=\"262\"", {"attribute mnc is missing", "attribute apn is missing"}},
    };
    for (const auto& [attributes, problems] : cases) {
        Texts expected;
        for (const std::string& problem : problems) {
            expected.push_back("f.xml:3: " + problem);
        }
        EXPECT_EQ(problemsOf(attributes), expected) << attributes;
    }
}

TEST(ApnFileTest, entriesAreGroupedByOperatorInTheOrderOfTheFile) {
    const ApnFile file = parseApnFile("f.xml",
                                      "<apns>\n"
                                      "<apn mcc='262' mnc='01' apn='a'/><apn mcc='26' mnc='1'/>\n"
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
    EXPECT_EQ(file.problems.size(), 2U);
    EXPECT_EQ(file.find("262010"), &file.operators[2]);
    EXPECT_EQ(file.find("26202"), nullptr);
}

TEST(ApnFileTest, fileThatIsNoApnFileIsRefusedWithTheLine) {
    const std::pair<std::string, std::string> cases[] = {
        {"", "f.xml:1: "},
        {"hello", "f.xml:1: "},
        {"<apns>\n<apn mcc='1'\n</apns>", "f.xml:3: "},
        {"<apns>\n<apn/>\n", "f.xml:2: "},
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
    EXPECT_THROW(readApnFile("/nonexistent.xml"), ApnFileError);
}

}  // namespace
}  // namespace kiv::kivctl
