#ifndef TESTS_RELIABILITY_WORLD_H
#define TESTS_RELIABILITY_WORLD_H

#include <array>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Manager.h"
#include "Model.h"
#include "Util.h"

namespace kiv::test {

/// What a client may do, and what may happen to the modem.
enum class Step {
    Get,
    Match,
    Filter,
    Add,
    Modify,
    Delete,
    Drop,
    Listen,
    RefreshStart,
    RefreshComplete,
    SetupCall,
    EmergencyCall,
    LteAttach,
    MatchLteAttach,
    ByApnClass,
    ByApnType,
    OtherCreates,
    OtherModifies,
    OtherDeletes,
    SubscriptionChange,
    ProfileReady,
    RefreshConfiguration,
    SetCapacity,
    PowerOff,
    Restart,
    Init,
    kSteps
};
constexpr int kFaults = 32;

/// One operation, as numbers that shrink well: 0 is the least that can be asked.
struct Op {
    int step = 0;
    int slot = 0;    ///< which key, and where a new one is kept
    int fields = 0;  ///< which parameters are present, one bit each
    int values = 0;  ///< two bits for each of them
    int extra = 0;
    int fault = 0;  ///< what goes wrong meanwhile
};

/// The keys of one client thread, with the listeners of each.
struct Client {
    struct Slot {
        std::shared_ptr<IProfileKey> key{};
        std::vector<std::shared_ptr<Listener>> listeners{};
    };
    std::array<Slot, 5> slots{};
};

/// The library with the emulator, watched: what the worker does is replayed on a model.
///
/// Threads: play may run on several at once; the rest while nobody plays.
/// Failures are thrown as std::runtime_error.
class World {
public:
    World();
    ~World();
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    /// Carries out one operation, and sees that it returned in time.
    void play(Client& client, const Op& op);
    void drop(Client& client);
    /// The same with what goes wrong meanwhile, and checked at once. For one client alone.
    void playAlone(Client& client, const Op& op);
    void arm(emulator::Fault fault);
    void disarm();
    /// Until the library has handled all that it was told.
    void settle();
    /// Replays what happened since the last time, and compares what the library knows.
    void check();
    /// After the next service-up and refresh the cache equals the modem.
    void recover();

    static int64_t requestsSoFar();

    Model model;
    bool isFaithful = true;  ///< the library could hear of every change, and in time

private:
    void act(Client& client, const Op& op);
    std::shared_ptr<IProfileKey> follow(const Op& op, const ProfileParams& params, TechType tech);
    void perform(const Op& op);
    void renew();
    void letUndecodedGo();
    void drop(Client::Slot& slot);
    void listen(Client::Slot& slot);

    Manager& manager = Manager::getInstance();
    Util util;
    std::mutex hinted;    ///< one request at a time whose dump does not tell it
    std::mutex policies;  ///< one at a time, for their requests look alike
    std::vector<std::shared_ptr<Listener>> listeners;  ///< under hinted
    std::map<std::string, std::list<std::string>> responses;
};

/// How often a check does its work: from the environment, for the long runs.
uint64_t countFrom(const char* variable, uint64_t otherwise);

}  // namespace kiv::test

#endif
