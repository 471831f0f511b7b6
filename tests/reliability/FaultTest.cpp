// Every fault that the emulator knows, each by itself, while a client goes through what it may do.

#include <gtest/gtest.h>

#include "World.h"

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
constexpr unsigned kList = RAV_WDS_GET_PROFILE_LIST_REQ_V01;
constexpr unsigned kGet = RAV_WDS_GET_PROFILE_SETTINGS_REQ_V01;
constexpr milliseconds kAWhile(300);

using Cases = std::map<std::string, Scenario>;

Cases answerCases() {
    const std::map<std::string, Fault> faults = {
        {"Delay", {.messageId = kCreate, .delay = milliseconds(999)}},
        {"DelayBeyondTheTimeOut", {.messageId = kCreate, .delay = milliseconds(1001)}},
        {"Drop", {.messageId = kCreate, .drop = true}},
        {"Transport", {.nth = 2, .transportResult = RAV_CLIENT_ERR_NO_MEMORY}},
        {"Error", {.messageId = kGet, .error = WDS_ERR_INTERNAL_V01}},
        {"EveryKind", {.error = WDS_ERR_INTERNAL_V01, .every = 1}},
        {"EverySecond", {.messageId = kCreate, .nth = 2, .every = 2, .drop = true}},
        {"Random", {.probability = 0.5, .drop = true}},
        {"CountTooLarge", {.messageId = kList, .every = 1, .lie = Lie::CountTooLarge}},
        {"UnterminatedText", {.messageId = kGet, .every = 1, .lie = Lie::UnterminatedText}},
        {"UnterminatedListText", {.messageId = kList, .every = 1, .lie = Lie::UnterminatedText}},
        {"IndexOutOfRange", {.messageId = kCreate, .lie = Lie::IndexOutOfRange}},
        {"ListIndexOutOfRange", {.messageId = kList, .every = 1, .lie = Lie::IndexOutOfRange}},
        {"UnknownEnums", {.every = 1, .lie = Lie::UnknownEnums}},
        {"Malformed", {.every = 1, .indications = IndicationFault::Malformed}},
        {"UnknownId", {.every = 1, .indications = IndicationFault::UnknownId}},
        {"Duplicated", {.every = 1, .indications = IndicationFault::Duplicated}},
        {"Reordered", {.every = 1, .indications = IndicationFault::Reordered}},
        {"Withheld", {.every = 1, .indications = IndicationFault::Withheld}},
        {"IndicationBefore", {.every = 1, .order = IndicationOrder::Before}},
        {"IndicationAfter", {.every = 1, .order = IndicationOrder::After}}};
    Cases cases;
    for (const auto& [name, fault] : faults) {
        cases[name].faults = {fault};
    }
    return cases;
}

Cases actionCases() {
    const auto foreign = settings3gpp("foreign");
    const std::map<std::string, Action> actions = {
        {"Killed", {.kind = Kind::PowerOff}},
        {"KilledAndBack", {.kind = Kind::PowerOff, .comesBackAfter = kAWhile}},
        {"SilentlyKilled", {.kind = Kind::PowerOff, .silent = true}},
        {"SilentlyKilledAndBack",
         {.kind = Kind::PowerOff, .silent = true, .comesBackAfter = kAWhile}},
        {"Created", {.kind = Kind::CreateProfile, .settings = foreign}},
        {"Modified", {.kind = Kind::ModifyProfile, .index = 1, .settings = foreign}},
        {"Deleted", {.kind = Kind::DeleteProfile, .index = 1}},
        {"Subscription", {.kind = Kind::SubscriptionChange}},
        {"Ready", {.kind = Kind::ProfileReady}},
        {"Refreshed", {.kind = Kind::RefreshConfiguration}},
        {"FullTableLater", {.kind = Kind::SetCapacity, .capacity = 0}},
        {"AnyBytes",
         {.kind = Kind::Indication, .messageId = 168, .bytes = {std::byte{16}, std::byte{255}}}}};
    Cases cases;
    for (const auto& [name, action] : actions) {
        for (const auto& [at, moment] :
             {std::pair("BeforeDelivery", Moment::BeforeDelivery),
              std::pair("BeforeReply", Moment::BeforeReply),
              std::pair("AfterReply", Moment::AfterReply), std::pair("Idle", Moment::Idle)}) {
            cases[name + at].faults = {{.messageId = kCreate, .consequences = {{moment, action}}}};
        }
        cases[name + "AtATime"].events = {{kAWhile, action}};
    }
    return cases;
}

Cases startCases() {
    return {{"Late", {.startsAfter = milliseconds(5000)}},
            {"Never", {.neverStarts = true}},
            {"BackAtATime",
             {.events = {{milliseconds(700), {.kind = Kind::PowerOn}}}, .neverStarts = true}},
            {"FullTable", {.capacity3gpp = 2, .capacity3gpp2 = 0}}};
}

class FaultTest : public testing::TestWithParam<Cases::value_type> {};

TEST_P(FaultTest, CallsReturnInTimeAndTheCacheFollows) {
    constexpr Op kOps[] = {{Step::RefreshComplete},
                           {Step::Add, 0, 3, 8, 1},
                           {Step::Listen},
                           {Step::Modify, 0, kAllFields, 0x155},
                           {Step::Get},
                           {Step::Filter, 1},
                           {Step::SetupCall, 2, 3, 7, 1},
                           {Step::Delete},
                           {Step::RefreshComplete},
                           {Step::Drop, 1}};
    World world;
    Client client;
    world.isFaithful = world.model.isSteady = false;
    const auto letTimePass = [&](milliseconds span) {
        world.settle();
        for (const auto end = modem().now() + span; modem().now() < end; world.settle()) {
            modem().passTime(end - modem().now());
        }
    };
    modem().play(GetParam().second);
    modem().restart();
    letTimePass(kAWhile);
    for (const Op& op : kOps) {
        world.play(client, op);
        letTimePass(milliseconds(1000));
    }
    world.recover();
}

std::string nameOf(const testing::TestParamInfo<Cases::value_type>& info) {
    return info.param.first;
}

INSTANTIATE_TEST_SUITE_P(Answers, FaultTest, testing::ValuesIn(answerCases()), nameOf);
INSTANTIATE_TEST_SUITE_P(Actions, FaultTest, testing::ValuesIn(actionCases()), nameOf);
INSTANTIATE_TEST_SUITE_P(Starts, FaultTest, testing::ValuesIn(startCases()), nameOf);

}  // namespace
}  // namespace kiv::test
