// Random operations of clients, of other parties and of chance, against the model.

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <unistd.h>

#include <exception>
#include <fstream>
#include <iostream>
#include <iterator>
#include <random>
#include <sstream>
#include <thread>
#include <utility>

#include "World.h"

namespace kiv::test {

/// Found by RapidCheck.
void showValue(const Op& op, std::ostream& out) {
    out << "{Step(" << static_cast<int>(op.step) << "), " << op.slot << ", " << op.fields << ", "
        << op.values << ", " << op.extra << ", " << op.fault << "}";
}

namespace {

// clang-format off
/// How often each step is taken. The first one is what a shrunk sequence is made of.
constexpr std::pair<Step, int> kWeights[] = {
    {Step::Get, 2}, {Step::Match, 3}, {Step::Modify, 8}, {Step::Delete, 4}, {Step::Listen, 6},
    {Step::Drop, 5}, {Step::Filter, 4}, {Step::Add, 8}, {Step::SetupCall, 2},
    {Step::EmergencyCall, 1}, {Step::LteAttach, 2}, {Step::MatchLteAttach, 1},
    {Step::ByApnClass, 1}, {Step::ByApnType, 1}, {Step::RefreshComplete, 4},
    {Step::RefreshStart, 1}, {Step::OtherCreates, 2}, {Step::OtherModifies, 2},
    {Step::OtherDeletes, 2}, {Step::SubscriptionChange, 1}, {Step::ProfileReady, 1},
    {Step::RefreshConfiguration, 1}, {Step::SetCapacity, 1}, {Step::PowerOff, 1},
    {Step::Restart, 3}, {Step::Init, 1}};
// clang-format on

constexpr int kAllWeights = [] {
    int sum = 0;
    for (const auto& [step, weight] : kWeights) {
        sum += weight;
    }
    return sum;
}();

Step stepOf(int number) {
    for (const auto& [step, weight] : kWeights) {
        if (number < weight) {
            return step;
        }
        number -= weight;
    }
    return Step::Get;
}

rc::Gen<std::vector<Op>> anyOps(int most) {
    namespace gen = rc::gen;
    const auto upTo = [](int last) { return gen::inRange(0, last + 1); };
    const auto op = gen::build<Op>(
        gen::set(&Op::step, gen::map(upTo(kAllWeights - 1), stepOf)), gen::set(&Op::slot, upTo(4)),
        gen::set(&Op::fields, upTo(kAllFields)), gen::set(&Op::values, upTo(kAllValues)),
        gen::set(&Op::extra, upTo(kAllExtras)), gen::set(&Op::fault, upTo(kAllFaults)));
    return gen::resize(most, gen::container<std::vector<Op>>(gen::resize(rc::kNominalSize, op)));
}

uint64_t seed() {
    static const uint64_t value = countFrom("KIVR_SEED", 1);
    // RapidCheck then tells the same one.
    setenv("RC_PARAMS", ("seed=" + std::to_string(value)).c_str(), 1);
    std::cout << "KIVR_SEED=" << value << std::endl;
    return value;
}

TEST(SimulationTest, KeepsToTheModel) {
    const uint64_t wanted = countFrom("KIVR_OPERATIONS", 6000);
    constexpr int kMostOps = 400;
    const char* const journal = getenv("KIVR_JOURNAL");
    modem().stop();
    ASSERT_TRUE(modem().useVirtualClock(true));
    ASSERT_TRUE(journal == nullptr || modem().startJournal(journal));
    rc::detail::TestParams params;
    params.disableShrinking = getenv("KIVR_SEED_FAULT") != nullptr;
    uint64_t played = 0;
    int shrinks = 0;
    bool hasFailed = false;
    const auto property = [&] {
        const auto ops = *anyOps(kMostOps);
        if (hasFailed && ++shrinks > 1000) {  // small enough
            return;
        }
        const bool isShrinking = std::exchange(hasFailed, true);
        World world;
        Client client;
        for (const Op& op : ops) {
            world.playAlone(client, op);
        }
        world.recover();
        played += ops.size();
        hasFailed = isShrinking;
    };
    for (params.seed = seed(); played < wanted; ++params.seed) {
        params.maxSuccess = static_cast<int>((wanted - played) * 2 / kMostOps + 1);
        const auto result = rc::detail::checkTestable(property, rc::detail::TestMetadata(), params);
        std::ostringstream text;
        rc::detail::printResultMessage(result, text);
        ASSERT_TRUE(result.template is<rc::detail::SuccessResult>()) << text.str();
    }
    ASSERT_TRUE(journal == nullptr || modem().finishJournal());
    std::cout << "result: " << played << " operations" << std::endl;
}

/// Every other batch lives through restarts of the modem, so that requests may go unsent.
void playOnThreads(uint64_t batch, int opsOfEach, std::vector<Client>& clients, World& world) {
    const bool isRestless = batch % 2 == 1;
    world.isFaithful = false;
    world.model.isSteady = !isRestless;
    modem().addFault(
        {.messageId = RAV_WDS_MODIFY_PROFILE_SETTINGS_REQ_V01, .error = 3, .every = 7});
    modem().addFault(
        {.messageId = RAV_WDS_CREATE_PROFILE_REQ_V01, .nth = 4, .every = 9, .drop = true});
    std::vector<std::thread> threads;
    std::vector<std::exception_ptr> failures(clients.size());
    for (size_t i = 0; i < clients.size(); ++i) {
        threads.emplace_back([&, i] {
            std::mt19937_64 random(batch * clients.size() + i);
            const auto upTo = [&](int last) {
                return static_cast<int>(random() % (static_cast<uint64_t>(last) + 1));
            };
            try {
                for (int n = 0; n < opsOfEach; ++n) {
                    const Op op{stepOf(upTo(kAllWeights - 1)), upTo(4), upTo(kAllFields),
                                upTo(kAllValues), upTo(kAllExtras)};
                    if (!isLoss(op.step) || (isRestless && op.step == Step::Restart)) {
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
}

TEST(SimulationTest, FourClientsKeepToTheModel) {
    const uint64_t wanted = countFrom("KIVR_OPERATIONS", 4000);
    constexpr int kOpsOfEach = 50;
    uint64_t played = 0;
    for (uint64_t batch = seed(); played < wanted; ++batch) {
        World world;
        std::vector<Client> clients(4);
        playOnThreads(batch, kOpsOfEach, clients, world);
        world.settle();
        world.check();
        world.recover();
        played += clients.size() * kOpsOfEach;
    }
    std::cout << "result: " << played << " operations of four clients" << std::endl;
}

std::string journalOf(uint64_t ofSeed) {
    const std::string process = std::to_string(getpid());
    const std::string path = testing::TempDir() + "journal" + process;
    const std::string command =
        "KIVR_JOURNAL=" + path + " KIVR_OPERATIONS=1500 KIVR_SEED=" + std::to_string(ofSeed) +
        " /proc/" + process + "/exe --gtest_filter=SimulationTest.KeepsToTheModel >&2";
    EXPECT_EQ(system(command.c_str()), 0);
    std::ifstream file(path);
    const std::string text(std::istreambuf_iterator<char>(file), {});
    remove(path.c_str());
    return text;
}

TEST(SimulationTest, OneSeedGivesTheSameJournal) {
    const std::string once = journalOf(seed());
    EXPECT_GT(once.size(), 10000U);
    EXPECT_TRUE(once == journalOf(seed() + (isSeeded("otherSeed") ? 1 : 0)));
}

}  // namespace
}  // namespace kiv::test
