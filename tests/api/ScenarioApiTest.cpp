// Every fault that the emulator knows, with the library attached: whatever the modem does, calls
// return in time, and once the modem is itself again the library knows all that it holds.

#include <gmock/gmock.h>

#include <map>
#include <tuple>
#include <utility>

#include "Engine.h"

/// Meant: the library keeps the record of an indication that can't be decoded.
extern "C" const char* __lsan_default_suppressions();  // NOLINT(bugprone-reserved-identifier)
extern "C" const char* __lsan_default_suppressions() { return "leak:ravIndCb\n"; }  // NOLINT

namespace kiv::test {
namespace {

using emulator::Action;
using emulator::Fault;
using emulator::IndicationFault;
using emulator::IndicationOrder;
using emulator::Lie;
using emulator::Moment;
using emulator::Scenario;
using std::chrono::milliseconds;
using Kind = Action::Kind;

constexpr unsigned kCreate = RAV_WDS_CREATE_PROFILE_REQ_V01;
constexpr unsigned kModify = RAV_WDS_MODIFY_PROFILE_SETTINGS_REQ_V01;
constexpr unsigned kDelete = RAV_WDS_DELETE_PROFILE_REQ_V01;
constexpr unsigned kList = RAV_WDS_GET_PROFILE_LIST_REQ_V01;
constexpr unsigned kGet = RAV_WDS_GET_PROFILE_SETTINGS_REQ_V01;
constexpr unsigned kBind = RAV_WDS_BIND_SUBSCRIPTION_REQ_V01;

/// Which operations of the first round succeed; an addition is needed for the others.
constexpr const char* kAllSucceed = "added modified removed ";
constexpr const char* kNoAdd = "";
constexpr const char* kAddOnly = "added ";

struct Case {
    std::string name;
    Scenario scenario;
    std::string outcome = kAllSucceed;
};

void PrintTo(const Case& one, std::ostream* out) { *out << one.name; }

Case fault(std::string name, Fault fault, std::string outcome = kAllSucceed) {
    Case made{std::move(name), {}, std::move(outcome)};
    made.scenario.seed = 1;
    made.scenario.faults.push_back(std::move(fault));
    return made;
}

Case consequence(std::string name, unsigned messageId, Moment moment, Action action,
                 std::string outcome = kAllSucceed) {
    Fault one{.messageId = messageId, .consequences = {{moment, std::move(action)}}};
    return fault(std::move(name), std::move(one), std::move(outcome));
}

Action powerOff(bool silent, std::optional<milliseconds> comesBackAfter) {
    return {.kind = Kind::PowerOff, .silent = silent, .comesBackAfter = comesBackAfter};
}

std::vector<Case> answerCases() {
    return {
        fault("Delay", {.messageId = kCreate, .delay = milliseconds(999)}),
        fault("DelayBeyondTheTimeOut", {.messageId = kCreate, .delay = milliseconds(1001)}, kNoAdd),
        fault("Drop", {.messageId = kCreate, .drop = true}, kNoAdd),
        fault("Transport", {.messageId = kDelete, .transportResult = RAV_CLIENT_ERR_NO_MEMORY},
              "added modified "),
        fault("Error", {.messageId = kModify, .error = WDS_ERR_INTERNAL_V01}, "added removed "),
        fault("Rewrite",
              {.messageId = kCreate,
               .rewrite = [](void* answer, size_t length) { std::memset(answer, 0xFF, length); }},
              kNoAdd),
        fault("EveryKind", {.error = WDS_ERR_INTERNAL_V01, .every = 1}, kNoAdd),
        fault("EverySecond", {.messageId = kCreate, .nth = 2, .every = 2, .drop = true}),
        fault("Random", {.probability = 1.0, .drop = true}, kNoAdd),
        fault("CountTooLarge", {.messageId = kList, .every = 1, .lie = Lie::CountTooLarge}),
        fault("UnterminatedText", {.messageId = kGet, .every = 1, .lie = Lie::UnterminatedText}),
        fault("UnterminatedListText",
              {.messageId = kList, .every = 1, .lie = Lie::UnterminatedText}),
        fault("IndexOutOfRange", {.messageId = kCreate, .lie = Lie::IndexOutOfRange}, kAddOnly),
        fault("ListIndexOutOfRange", {.messageId = kList, .every = 1, .lie = Lie::IndexOutOfRange}),
        fault("UnknownEnums", {.messageId = kCreate, .lie = Lie::UnknownEnums}),
        fault("UnknownEnumsOfSettings", {.messageId = kGet, .every = 1, .lie = Lie::UnknownEnums}),
        fault("ListUnknownEnums", {.messageId = kList, .every = 1, .lie = Lie::UnknownEnums}),
    };
}

std::vector<Case> indicationCases() {
    return {
        fault("Malformed", {.every = 1, .indications = IndicationFault::Malformed}),
        fault("UnknownId", {.every = 1, .indications = IndicationFault::UnknownId}),
        fault("Duplicated", {.every = 1, .indications = IndicationFault::Duplicated}),
        fault("Reordered", {.every = 1, .indications = IndicationFault::Reordered}),
        fault("Withheld", {.every = 1, .indications = IndicationFault::Withheld}),
        fault("IndicationBefore", {.every = 1, .order = IndicationOrder::Before}),
        fault("IndicationAfter", {.every = 1, .order = IndicationOrder::After}),
    };
}

constexpr std::pair<const char*, Moment> kMoments[] = {{"BeforeDelivery", Moment::BeforeDelivery},
                                                       {"BeforeReply", Moment::BeforeReply},
                                                       {"AfterReply", Moment::AfterReply},
                                                       {"Idle", Moment::Idle}};

std::vector<Case> powerCases() {
    const milliseconds kAWhile(300);
    std::vector<Case> cases;
    for (const bool silent : {false, true}) {
        for (const auto& [at, moment] : kMoments) {
            const bool isReplied = moment == Moment::AfterReply || moment == Moment::Idle;
            const auto outcome = isReplied ? kAddOnly : kNoAdd;
            const std::string name = (silent ? "SilentlyKilled" : "Killed") + std::string(at);
            cases.push_back(consequence(name, kCreate, moment, powerOff(silent, {}), outcome));
            cases.push_back(
                consequence(name + "AndBack", kCreate, moment, powerOff(silent, kAWhile), outcome));
        }
    }
    cases.push_back(
        consequence("KilledAtRegistration", kBind, Moment::BeforeReply, powerOff(false, kAWhile)));
    cases.push_back({"Late", {.startsAfter = milliseconds(5000)}});
    cases.push_back({"Never", {.neverStarts = true}, kNoAdd});
    cases.push_back({"GoneAtATime", {.events = {{kAWhile, powerOff(false, kAWhile)}}}});
    cases.push_back(
        {"BackAtATime",
         {.events = {{milliseconds(700), {.kind = Kind::PowerOn}}}, .neverStarts = true}});
    return cases;
}

std::vector<Case> changeCases() {
    // An addition's key expires where all profiles are read anew.
    const auto foreign = settings3gpp("foreign");
    const std::tuple<std::string, unsigned, Action, const char*> kChanges[] = {
        {"Created", kCreate, {.kind = Kind::CreateProfile, .settings = foreign}, kAllSucceed},
        {"Modified",
         kModify,
         {.kind = Kind::ModifyProfile, .index = 1, .settings = foreign},
         kAllSucceed},
        {"Deleted", kModify, {.kind = Kind::DeleteProfile, .index = 1}, kAllSucceed},
        {"Subscription", kCreate, {.kind = Kind::SubscriptionChange}, kAddOnly},
        {"Ready", kCreate, {.kind = Kind::ProfileReady}, kAddOnly},
        {"Refreshed", kCreate, {.kind = Kind::RefreshConfiguration}, kAddOnly},
    };
    std::vector<Case> cases;
    for (const auto& [name, messageId, action, outcome] : kChanges) {
        for (const auto& [at, moment] : kMoments) {
            cases.push_back(consequence(name + at, messageId, moment, action, outcome));
        }
    }
    cases.push_back({"FullTable", {.capacity3gpp = 2, .capacity3gpp2 = 0}, kNoAdd});
    cases.push_back(consequence("FullTableLater", kModify, Moment::BeforeReply,
                                {.kind = Kind::SetCapacity, .capacity = 0}));
    cases.push_back(consequence("AnyBytes", kCreate, Moment::BeforeReply,
                                {.kind = Kind::Indication,
                                 .messageId = RAV_WDS_PROFILE_CHANGED_IND_V01,
                                 .bytes = {std::byte{0x10}, std::byte{0xFF}}}));
    return cases;
}

class ScenarioApiTest : public EngineTest, public testing::WithParamInterface<Case> {
protected:
    void SetUp() override {
        modem().stop();
        modem().factoryReset();
        ASSERT_TRUE(modem().useVirtualClock(true));
        modem().installFactoryProfiles();
    }
    void TearDown() override {
        modem().stop();
        modem().factoryReset();
        ASSERT_TRUE(modem().useVirtualClock(false));
    }

    /// Until the library has handled all that it was told: two rounds through its worker, for one
    /// may overtake an event that lies there already.
    void settle() {
        for (int i = 0; i < 4; ++i) {
            ASSERT_TRUE(modem().waitForDeliveries(kPatience));
            manager.match(FilterProfileParams(), nullptr);
            manager.match(FilterProfileParams(), nullptr);
        }
    }
    void letTimePass(milliseconds span = milliseconds(1)) {
        settle();
        for (const auto end = modem().now() + span; modem().now() < end; settle()) {
            modem().passTime(end - modem().now());
        }
    }
    /// What succeeds of adding, modifying and removing a profile.
    std::string playARound() {
        std::string succeeded;
        const auto key = add("Internet");
        letTimePass();
        if (key) {
            manager.modifyProfile(userName("me"), key);
            letTimePass();
            const auto params = manager.getProfile(key);
            const bool isModified = params && params->getUserName() == "me";
            succeeded += isModified ? "added modified " : "added ";
            succeeded += manager.deleteProfile(key) ? "removed " : "";
            letTimePass();
        }
        add("Other");
        letTimePass();
        refresh();
        letTimePass();
        return succeeded;
    }
    /// Profile and access point name, as the modem and as the library see it.
    using Known = std::multimap<int, std::string>;
    static Known heldByModem() {
        Known known;
        for (const auto& one : modem().profiles(WDS_PROFILE_TYPE_3GPP_V01)) {
            known.emplace(one.index, one.settings.apn_name);
        }
        for (const auto& one : modem().profiles(WDS_PROFILE_TYPE_3GPP2_V01)) {
            known.emplace(1000 + one.index, one.settings.apn_string_3gpp2);
        }
        return known;
    }
    Known knownToLibrary() {
        Known known;
        for (const auto& key : manager.filter(FilterProfileParams())) {
            const auto params = manager.getProfile(key);
            const int base = key->getTechType() == TechType::Tech3gpp ? 0 : 1000;
            known.emplace(base + key->getProfileId(), params ? params->getApnName() : "none");
        }
        return known;
    }
};

TEST_P(ScenarioApiTest, CallsReturnAndTheLibraryRecovers) {
    // Before the power is on, so that only one engine meets the faults.
    manager.init(0, true);
    modem().play(GetParam().scenario);
    modem().start();
    letTimePass(milliseconds(6000));
    refresh();
    EXPECT_EQ(playARound(), GetParam().outcome);
    letTimePass(milliseconds(6000));

    modem().clearFaults();
    modem().restart();
    letTimePass();
    refresh();
    settle();
    EXPECT_TRUE(modem().waitForRegisteredClient(milliseconds(0)));
    EXPECT_EQ(knownToLibrary(), heldByModem());
    EXPECT_GE(heldByModem().size(), 2U);
}

std::string nameOf(const testing::TestParamInfo<Case>& info) { return info.param.name; }

INSTANTIATE_TEST_SUITE_P(Answers, ScenarioApiTest, testing::ValuesIn(answerCases()), nameOf);
INSTANTIATE_TEST_SUITE_P(Indications, ScenarioApiTest, testing::ValuesIn(indicationCases()),
                         nameOf);
INSTANTIATE_TEST_SUITE_P(Power, ScenarioApiTest, testing::ValuesIn(powerCases()), nameOf);
INSTANTIATE_TEST_SUITE_P(Changes, ScenarioApiTest, testing::ValuesIn(changeCases()), nameOf);

}  // namespace
}  // namespace kiv::test
