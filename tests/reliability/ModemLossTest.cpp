// The modem dies at every message boundary of every operation.

#include <gtest/gtest.h>

#include <iostream>

#include "World.h"

namespace kiv::test {
namespace {

using emulator::Action;
using emulator::Moment;
using std::chrono::milliseconds;

struct Operation {
    const char* name;
    int requests;
    Op op;
};
/// Slot 0 holds the key of a profile that is the library's own. extra 1 is 3GPP and transient, and
/// lets policies update.
constexpr Operation kOperations[] = {
    {"get", 0, {Step::Get}},
    {"match", 0, {Step::Match, 0, 1, 0, 1}},
    {"filter", 0, {Step::Filter, 1}},
    {"listen", 0, {Step::Listen}},
    {"add", 1, {Step::Add, 1, kAllFields, 0x155, 1}},
    {"add for 3GPP2", 1, {Step::Add, 1, kAllFields, 0x155, 7}},
    {"modify", 1, {Step::Modify, 0, kAllFields, 0x3FF}},
    {"delete", 1, {Step::Delete}},
    {"release", 1, {Step::Drop}},
    {"refresh", 6, {Step::RefreshComplete}},
    {"setup data call, found", 1, {Step::SetupCall, 1, kAllFields, 2, 1}},
    {"setup data call, added", 1, {Step::SetupCall, 1, 3, 7, 2}},
    {"emergency call", 1, {Step::EmergencyCall, 1, 3, 7}},
    {"LTE attach, found", 1, {Step::LteAttach, 1, kAllFields, 2, 1}},
    {"LTE attach, added", 1, {Step::LteAttach, 1, 7, 0x1F, 2}},
    {"by APN class", 2, {Step::ByApnClass, 1, kAllFields, 0x155, 1}},
    {"by APN type", 1, {Step::ByApnType, 1, 0xB, 0xC2, 2}},
    {"created by another", 2, {Step::OtherCreates, 1, kAllFields, 0, 1}},
    {"modified by another", 1, {Step::OtherModifies, 1, kAllFields, 0, 1}},
    {"subscription change", 6, {Step::SubscriptionChange}},
    {"new engine", 3, {Step::Init}},
};

/// Carries the operation out while the modem dies at its nth request; returns how many it made.
int64_t play(const Operation& operation, unsigned nth, Moment moment, const Action* death) {
    World world;
    Client client;
    world.playAlone(client, {Step::Add, 0, 3, 8, 1});
    world.isFaithful = false;
    world.model.isSteady = death == nullptr;
    if (death != nullptr) {
        modem().addFault({.nth = nth, .consequences = {{moment, *death}}});
    }
    const int64_t before = world.requestsSoFar();
    world.play(client, operation.op);
    world.settle();
    const int64_t made = world.requestsSoFar() - before;
    world.check();
    world.recover();
    return made;
}

TEST(ModemLossTest, EveryBoundaryOfEveryOperationIsSurvived) {
    constexpr Moment kMoments[] = {Moment::BeforeDelivery, Moment::BeforeReply, Moment::AfterReply};
    const Action deaths[] = {{.silent = false},
                             {.silent = true},
                             {.silent = false, .comesBackAfter = milliseconds(300)},
                             {.silent = true, .comesBackAfter = milliseconds(300)}};
    int64_t deathsSoFar = 0;
    for (const Operation& operation : kOperations) {
        const int64_t requests = play(operation, 0, Moment::Idle, nullptr);
        EXPECT_EQ(requests, operation.requests) << operation.name;
        for (int64_t nth = 1; nth <= requests; ++nth) {
            for (const Moment moment : kMoments) {
                for (const Action& death : deaths) {
                    SCOPED_TRACE(operation.name + (", request " + std::to_string(nth)) +
                                 ", moment " + std::to_string(static_cast<int>(moment)) +
                                 ", death " + std::to_string(&death - deaths));
                    EXPECT_NO_THROW(play(operation, static_cast<unsigned>(nth), moment, &death));
                    ++deathsSoFar;
                }
            }
        }
    }
    std::cout << "result: " << deathsSoFar << " deaths of the modem" << std::endl;
}

}  // namespace
}  // namespace kiv::test
