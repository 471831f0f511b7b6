// The modem dies at every message boundary of every operation.

#include <gtest/gtest.h>

#include <iostream>

#include "World.h"

namespace kiv::test {
namespace {

using emulator::Action;
using emulator::Moment;
using std::chrono::milliseconds;

constexpr int kAllFields = 0x3FF;

struct Operation {
    const char* name;
    Op op;
};
/// Slot 0 holds the key of a profile that is the library's own. extra 1 is 3GPP and transient, and
/// lets policies update.
constexpr Operation kOperations[] = {
    {"get", {static_cast<int>(Step::Get)}},
    {"match", {static_cast<int>(Step::Match), 0, 1, 0, 1}},
    {"filter", {static_cast<int>(Step::Filter), 1}},
    {"listen", {static_cast<int>(Step::Listen)}},
    {"add", {static_cast<int>(Step::Add), 1, kAllFields, 0x155, 1}},
    {"add for 3GPP2", {static_cast<int>(Step::Add), 1, kAllFields, 0x155, 7}},
    {"modify", {static_cast<int>(Step::Modify), 0, kAllFields, 0x3FF}},
    {"delete", {static_cast<int>(Step::Delete)}},
    {"release", {static_cast<int>(Step::Drop)}},
    {"refresh", {static_cast<int>(Step::RefreshComplete)}},
    {"setup data call, found", {static_cast<int>(Step::SetupCall), 1, kAllFields, 2, 1}},
    {"setup data call, added", {static_cast<int>(Step::SetupCall), 1, 3, 7, 2}},
    {"emergency call", {static_cast<int>(Step::EmergencyCall), 1, 3, 7}},
    {"LTE attach, found", {static_cast<int>(Step::LteAttach), 1, kAllFields, 2, 1}},
    {"LTE attach, added", {static_cast<int>(Step::LteAttach), 1, 7, 0x1F, 2}},
    {"by APN class", {static_cast<int>(Step::ByApnClass), 1, kAllFields, 0x155, 1}},
    {"by APN type", {static_cast<int>(Step::ByApnType), 1, 0xB, 0xC2, 2}},
    {"created by another", {static_cast<int>(Step::OtherCreates), 1, kAllFields, 0, 1}},
    {"modified by another", {static_cast<int>(Step::OtherModifies), 1, kAllFields, 0, 1}},
    {"subscription change", {static_cast<int>(Step::SubscriptionChange)}},
    {"new engine", {static_cast<int>(Step::Init)}},
};

/// Carries the operation out while the modem dies at its nth request; returns how many it made.
int64_t play(const Operation& operation, unsigned nth, Moment moment, const Action* death) {
    World world;
    Client client;
    world.playAlone(client, {static_cast<int>(Step::Add), 0, 3, 8, 1});
    world.isFaithful = false;
    world.model.isSteady = death == nullptr;
    if (death != nullptr) {
        world.arm({.nth = nth, .consequences = {{moment, *death}}});
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
    int64_t boundaries = 0;
    for (const Operation& operation : kOperations) {
        const int64_t requests = play(operation, 0, Moment::Idle, nullptr);
        for (int64_t nth = 1; nth <= requests; ++nth) {
            for (const auto moment :
                 {Moment::BeforeDelivery, Moment::BeforeReply, Moment::AfterReply}) {
                for (const bool silent : {false, true}) {
                    for (const bool returns : {false, true}) {
                        Action death{.silent = silent};
                        if (returns) {
                            death.comesBackAfter = milliseconds(300);
                        }
                        SCOPED_TRACE(operation.name + (" at request " + std::to_string(nth)) +
                                     ", moment " + std::to_string(static_cast<int>(moment)) +
                                     (silent ? ", silently" : "") + (returns ? ", and back" : ""));
                        EXPECT_NO_THROW(
                            play(operation, static_cast<unsigned>(nth), moment, &death));
                        ++boundaries;
                    }
                }
            }
        }
    }
    std::cout << "result: " << boundaries << " deaths of the modem" << std::endl;
}

}  // namespace
}  // namespace kiv::test
