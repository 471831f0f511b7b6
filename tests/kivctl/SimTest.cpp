#include "Sim.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "Failure.h"

namespace kiv::kivctl {
namespace {

constexpr char kFile[] = R"(<apns>
<apn carrier="off" mcc="310" mnc="260" apn="off" type="default" carrier_enabled="false"/>
<apn carrier="2G" mcc="310" mnc="260" apn="old" type="default" bearer="16"/>
<apn carrier="Foo" mcc="310" mnc="260" apn="foo" type="default,ia" mvno_type="spn" mvno_match_data="Foo, Inc"/>
<apn carrier="Host" mcc="310" mnc="260" apn="host" type="default"/>
<apn carrier="Imsi" mcc="310" mnc="260" apn="imsi" type="default" mvno_type="imsi" mvno_match_data="3102601x9"/>
<apn carrier="Gid" mcc="310" mnc="260" apn="gid" mvno_type="gid" mvno_match_data="Ab" carrier_id="20"/>
<apn carrier="Card" mcc="310" mnc="260" apn="card" type="mms" mvno_type="iccid" mvno_match_data="8901"/>
<apn carrier="Own" apn="own" type="default,emergency" carrier_id="7"/>
<apn carrier="SOS" mcc="310" mnc="260" apn="sos" type="emergency"/>
<apn carrier="cdma" mcc="310" mnc="260" apn="cdma" type="ia" network_type_bitmask="4"/>
<apn carrier="guest" mcc="999" mnc="99" apn="guest" carrier_id="20" carrier_enabled="false"/>
</apns>)";

const Need kAttach{{ApnTypes::IA, ApnTypes::DEFAULT}, true};
const Need kData{{ApnTypes::DEFAULT}};
const Need kEmergency{{ApnTypes::EMERGENCY}};

std::string chosen(const ApnFile& file, const Sim& sim, const Need& need) {
    const ApnEntry* entry = choose(candidatesFor(file, sim), need, sim).entry;
    return entry ? entry->params.getApnName() : "none";
}

TEST(SimTest, eachStepTakesTheEntryThatAPhoneTakes) {
    const ApnFile file = parseApnFile("f", kFile);
    const struct {
        const char* sim;
        std::string attach, data, emergency;
    } cases[] = {
        {"310260", "host", "old", "sos"},
        {"310260,spn=fOO, iNC", "foo", "foo", "none"},
        {"310260,spn=Foo", "host", "old", "sos"},
        {"310260,imsi=310260179000000", "imsi", "imsi", "none"},
        {"310260,imsi=310260178000000", "host", "old", "sos"},
        {"310260,gid=aBcd", "gid", "gid", "gid"},
        {"310260,gid=A", "host", "old", "sos"},
        {"310260,iccid=89013", "none", "none", "none"},
        {"310260,carrier-id=20", "gid", "gid", "gid"},
        {"310260,carrier-id=7", "own", "own", "own"},
        {"carrier-id=7", "own", "own", "own"},
        {"310260,carrier-id=8", "host", "old", "sos"},
        {"99999", "none", "none", "none"},
        {"00101", "none", "none", "none"},
    };
    for (const auto& one : cases) {
        const Sim sim = parseSim(one.sim);
        EXPECT_EQ(chosen(file, sim, kAttach), one.attach) << one.sim;
        EXPECT_EQ(chosen(file, sim, kData), one.data) << one.sim;
        EXPECT_EQ(chosen(file, sim, kEmergency), one.emergency) << one.sim;
    }
}

TEST(SimTest, eachEntryHasItsReason) {
    const ApnFile file = parseApnFile("f", kFile);
    const auto verdicts = [&](const char* text) {
        const Sim sim = parseSim(text);
        const auto candidates = candidatesFor(file, sim);
        const Choice choice = choose(candidates, kAttach, sim);
        std::vector<std::string> texts;
        for (const Candidate& one : candidates) {
            texts.push_back(one.entry->carrier + " " + explain(one, choice, kAttach, sim));
        }
        return texts;
    };
    EXPECT_EQ(verdicts("310260"),
              (std::vector<std::string>{
                  "off no: carrier_enabled is false", "2G no: not for LTE or NR",
                  "Foo no: only for SIMs with spn=Foo, Inc",
                  "Host yes: none of type ia; first of type default, by PLMN 310260",
                  "Imsi no: only for SIMs with imsi=3102601x9", "Gid no: only for SIMs with gid=Ab",
                  "Card no: only for SIMs with iccid=8901", "SOS no: not of type ia nor default",
                  "cdma no: not for LTE or NR"}));
    EXPECT_EQ(verdicts("310260,spn=foo, inc")[3], "Host no: the MVNO has entries of its own");
    EXPECT_EQ(verdicts("310260,carrier-id=7")[0],
              "Own yes: none of type ia; first of type default, by carrier id 7");
    EXPECT_EQ(verdicts("310260,carrier-id=7")[4], "Host no: the entry of line 9 comes first");
}

TEST(SimTest, fileTellsWhichSimsItServes) {
    const ApnFile file = parseApnFile("f", kFile);
    std::vector<std::string> texts;
    for (const Sim& sim : simsOf(file)) {
        texts.push_back(sim.text());
    }
    EXPECT_EQ(texts, (std::vector<std::string>{"310260", "310260,spn=Foo, Inc",
                                               "310260,imsi=310260109", "310260,gid=Ab",
                                               "310260,iccid=8901", "carrier-id=7", "99999"}));
    EXPECT_EQ(alternativesTo(file, parseSim("99999")),
              (std::vector<std::string>{"310260,gid=Ab", "310260,carrier-id=20"}));
}

TEST(SimTest, simIsReadOrRefusedWithWhatIsWrong) {
    const std::string all = "31026,spn=a, b,imsi=3102601,gid=F,iccid=89,carrier-id=3";
    EXPECT_EQ(parseSim(all).text(), all);
    const std::pair<std::string, std::string> refused[] = {
        {"", "--sim: '' is not 5 or 6 digits (MCC and MNC)"},
        {"2620", "--sim: '2620' is not 5 or 6 digits (MCC and MNC)"},
        {"26201,snp=x", "--sim: nothing is named 'snp'; did you mean spn?"},
        {"26201,spn=x,spn=y", "--sim: 'spn' is given twice, or without a value"},
        {"26201,gid=", "--sim: 'gid' is given twice, or without a value"},
        {"26201,imsi=26201x", "--sim: imsi '26201x' is not 6 to 15 digits"},
        {"26201,carrier-id=-1", "--sim: carrier-id '-1' is not a number"},
        {"spn=x", "--sim: neither a PLMN (MCC and MNC) nor a carrier-id in 'spn=x'"},
    };
    for (const auto& [text, message] : refused) {
        try {
            parseSim(text);
            ADD_FAILURE() << text;
        } catch (const Failure& failure) {
            EXPECT_EQ(failure.what(), message);
            EXPECT_EQ(failure.status, kUsage);
        }
    }
}

}  // namespace
}  // namespace kiv::kivctl
