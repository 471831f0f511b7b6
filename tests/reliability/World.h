#ifndef TESTS_RELIABILITY_WORLD_H
#define TESTS_RELIABILITY_WORLD_H

#include <array>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "Model.h"

namespace kiv::test {

// clang-format off
/// What a client may do, and what may happen beside it.
enum class Step {
    Get, Match, Modify, Delete, Listen, Drop,
    Filter, Add, SetupCall, EmergencyCall, LteAttach, MatchLteAttach, ByApnClass, ByApnType,
    RefreshComplete, RefreshStart,
    OtherCreates, OtherModifies, OtherDeletes, SubscriptionChange, ProfileReady,
    RefreshConfiguration, SetCapacity, PowerOff, Restart, Init
};
// clang-format on
/// Whether the step takes the modem or the engine away.
constexpr bool isLoss(Step step) {
    return step == Step::PowerOff || step == Step::Restart || step == Step::Init;
}

/// One operation, as numbers that shrink well: 0 is the least that can be asked.
struct Op {
    Step step = Step::Get;
    int slot = 0;    ///< which key, and where a new one is kept
    int fields = 0;  ///< which parameters are present, one bit each
    int values = 0;  ///< two bits for each of them
    int extra = 0;
    int fault = 0;  ///< what goes wrong meanwhile
};
constexpr int kAllFields = 0x3FF, kAllValues = 0xFFFFF, kAllExtras = 60, kAllFaults = 200;

struct Slot {
    std::shared_ptr<IProfileKey> key{};
    std::vector<std::shared_ptr<Listener>> listeners{};
};
/// The keys of one client thread.
using Client = std::array<Slot, 5>;

/// The library on a fresh modem, watched: what the worker does is replayed on a model.
///
/// Threads: play may run on several at once, everything else while nobody plays.
/// Failures are thrown as std::runtime_error.
class World {
public:
    World();
    ~World();
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    /// Carries out one operation, and sees that it returned in time.
    void play(Client& client, const Op& op);
    /// The same with what goes wrong meanwhile, and checked. For one client alone.
    void playAlone(Client& client, const Op& op);
    /// Until the library has handled all that it was told.
    void settle();
    /// Replays what happened since the last time, and compares what the library knows.
    void check();
    /// After the next service-up and refresh the cache equals the modem.
    void recover();
    static int64_t requestsSoFar();

    // The steps.
    void listen(Slot& slot);
    void drop(Slot& slot);
    void refresh(bool isStart);
    void interfere(const Op& op, const ProfileParams& params);

    Model model;
    bool isFaithful = true;  ///< the library could hear of every change, and in time

private:
    void renew();
    void letUndecodedGo();

    std::mutex hinted;    ///< one request at a time whose dump does not tell it
    std::mutex policies;  ///< one at a time, for their requests look alike
    std::vector<std::shared_ptr<Listener>> listeners;  ///< under hinted
    Model::Responses responses;
};

/// How often a check does its work: from the environment, for the long runs.
uint64_t countFrom(const char* variable, uint64_t otherwise);

}  // namespace kiv::test

#endif
