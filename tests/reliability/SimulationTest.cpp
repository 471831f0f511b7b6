// Random operations of clients, of other parties and of chance, against the model.

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <exception>
#include <fstream>
#include <iostream>
#include <random>
#include <sstream>
#include <thread>

#include "World.h"

namespace kiv::test {

/// Found by RapidCheck.
void showValue(const Op& op, std::ostream& out) {
    out << "{" << op.step << ", " << op.slot << ", " << op.fields << ", " << op.values << ", "
        << op.extra << ", " << op.fault << "}";
}

namespace {

constexpr int kValues = 1 << 20;
constexpr int kNothingWrong = 6 * kFaults;  ///< most numbers stand for no fault

/// How often each step is taken, the least first.
constexpr int kWeights[static_cast<size_t>(Step::kSteps)] = {
    2, 3, 4, 8, 8, 4, 5, 6, 1, 4,   // Get to RefreshComplete
    2, 1, 2, 1, 1, 1,               // the policies
    2, 2, 2, 1, 1, 1, 1, 1, 3, 1};  // others, from OtherCreates to Init

int stepOf(int number) {
    int step = 0;
    for (; number >= kWeights[step]; ++step) {
        number -= kWeights[step];
    }
    return step;
}

constexpr int kAllWeights = 68;

rc::Gen<Op> anyOp() {
    namespace gen = rc::gen;
    return gen::resize(
        rc::kNominalSize,
        gen::build<Op>(gen::set(&Op::step, gen::map(gen::inRange(0, kAllWeights), stepOf)),
                       gen::set(&Op::slot, gen::inRange(0, 5)),
                       gen::set(&Op::fields, gen::inRange(0, 1 << 10)),
                       gen::set(&Op::values, gen::inRange(0, kValues)),
                       gen::set(&Op::extra, gen::inRange(0, 60)),
                       gen::set(&Op::fault, gen::inRange(0, kNothingWrong))));
}

uint64_t seed() {
    static const uint64_t value = countFrom("KIVR_SEED", 1);
    // RapidCheck, too, then tells this one.
    setenv("RC_PARAMS", ("seed=" + std::to_string(value)).c_str(), 1);
    std::cout << "KIVR_SEED=" << value << std::endl;
    return value;
}

TEST(SimulationTest, KeepsToTheModel) {
    const uint64_t wanted = countFrom("KIVR_OPERATIONS", 6000);
    constexpr int kMostOps = 400;
    const char* const journal = getenv("KIVR_JOURNAL");
    ASSERT_TRUE(modem().useVirtualClock(true));
    ASSERT_TRUE(journal == nullptr || modem().startJournal(journal));
    rc::detail::TestParams params;
    params.disableShrinking = getenv("KIVR_SEED_FAULT") != nullptr;
    uint64_t played = 0;
    for (params.seed = seed(); played < wanted; ++params.seed) {
        params.maxSuccess = static_cast<int>((wanted - played) * 2 / kMostOps + 1);
        const auto result = rc::detail::checkTestable(
            [&] {
                const auto ops =
                    *rc::gen::resize(kMostOps, rc::gen::container<std::vector<Op>>(anyOp()));
                World world;
                Client client;
                for (const Op& op : ops) {
                    world.playAlone(client, op);
                }
                world.recover();
                played += ops.size();
            },
            rc::detail::TestMetadata(), params);
        if (!result.template is<rc::detail::SuccessResult>()) {
            std::ostringstream text;
            rc::detail::printResultMessage(result, text);
            FAIL() << text.str();
        }
    }
    ASSERT_TRUE(journal == nullptr || modem().finishJournal());
    std::cout << "result: " << played << " operations" << std::endl;
}

TEST(SimulationTest, FourClientsKeepToTheModel) {
    const uint64_t wanted = countFrom("KIVR_OPERATIONS", 4000);
    constexpr int kThreads = 4, kOpsOfEach = 50;
    const uint64_t first = seed();
    uint64_t played = 0;
    for (uint64_t batch = first; played < wanted; ++batch) {
        World world;
        std::array<Client, kThreads> clients;
        std::array<std::exception_ptr, kThreads> failures;
        // Every other batch lives through restarts, and may not have its requests sent.
        world.isFaithful = false;
        world.model.isSteady = batch % 2 == 0;
        world.arm({.messageId = RAV_WDS_MODIFY_PROFILE_SETTINGS_REQ_V01, .error = 3, .every = 7});
        world.arm(
            {.messageId = RAV_WDS_CREATE_PROFILE_REQ_V01, .nth = 4, .every = 9, .drop = true});
        std::vector<std::thread> threads;
        for (size_t i = 0; i < kThreads; ++i) {
            threads.emplace_back([&, i] {
                std::mt19937_64 random(batch * kThreads + i);
                const auto below = [&](int limit) { return static_cast<int>(random() % limit); };
                try {
                    for (int n = 0; n < kOpsOfEach; ++n) {
                        Op op{stepOf(below(kAllWeights)), below(5), below(1 << 10), below(kValues),
                              below(60)};
                        const auto step = static_cast<Step>(op.step);
                        if (step < Step::PowerOff || (batch % 2 == 1 && step == Step::Restart)) {
                            world.play(clients[i], op);
                        }
                    }
                } catch (...) {
                    failures[i] = std::current_exception();
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        for (const auto& failure : failures) {
            if (failure) {
                std::rethrow_exception(failure);
            }
        }
        world.settle();
        world.check();
        world.recover();
        played += kThreads * kOpsOfEach;
    }
    std::cout << "result: " << played << " operations of four clients" << std::endl;
}

std::string journalOf(uint64_t ofSeed) {
    const std::string path = testing::TempDir() + "journal" + std::to_string(getpid());
    const std::string command = "KIVR_JOURNAL=" + path +
                                " KIVR_OPERATIONS=1500 KIVR_SEED=" + std::to_string(ofSeed) +
                                " /proc/" + std::to_string(getpid()) +
                                "/exe --gtest_filter=SimulationTest.KeepsToTheModel >&2";
    EXPECT_EQ(system(command.c_str()), 0);
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    remove(path.c_str());
    return text.str();
}

TEST(SimulationTest, OneSeedGivesTheSameJournal) {
    const std::string once = journalOf(seed());
    EXPECT_GT(once.size(), 10000U);
    EXPECT_TRUE(once == journalOf(seed() + (isSeeded("otherSeed") ? 1 : 0)));
}

}  // namespace
}  // namespace kiv::test
