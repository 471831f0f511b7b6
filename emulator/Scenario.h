#ifndef EMULATOR_SCENARIO_H
#define EMULATOR_SCENARIO_H

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "wds_v01.h"

namespace kiv::emulator {

/// Something that happens to the modem though no client asked for it.
struct Action {
    enum class Kind {
        PowerOn,
        PowerOff,
        CreateProfile,
        ModifyProfile,
        DeleteProfile,
        SubscriptionChange,    ///< the indication of it
        ProfileReady,          ///< the indication of it
        RefreshConfiguration,  ///< the tables as shipped, and then the ready indication
        SetCapacity,
        Indication  ///< any bytes
    };
    Kind kind = Kind::PowerOff;

    /// PowerOff: no client is told, and requests are never answered. With the next power-on
    /// clients learn that their service went away.
    bool silent = false;
    std::optional<std::chrono::milliseconds> comesBackAfter = std::nullopt;  ///< PowerOff

    wds_profile_type_enum_v01 type = WDS_PROFILE_TYPE_3GPP_V01;  ///< of profile or table
    uint8_t index = 0;                                           ///< of the profile
    bool persistent = true;                                      ///< CreateProfile
    wds_profile_settings_type_v01 settings{};
    unsigned capacity = 0;
    unsigned messageId = 0;  ///< Indication
    std::vector<std::byte> bytes{};
};

/// What is wrong with a record that the modem answers with. Of requests whose answer has no such
/// member a lie changes nothing.
enum class Lie {
    None,
    CountTooLarge,     ///< a list that counts more entries than it can hold
    UnterminatedText,  ///< every text fills its member, without the terminating zero
    IndexOutOfRange,   ///< an index that the technology doesn't have
    UnknownEnums       ///< profile, PDP and PDN types without a meaning
};

/// What is wrong with the indications that a request causes.
enum class IndicationFault {
    None,
    Malformed,   ///< cut off in the middle
    UnknownId,   ///< of a message that the service doesn't have
    Duplicated,  ///< each made twice
    Reordered,   ///< the last one first
    Withheld     ///< none is made
};

/// When the indications that a request causes are made.
enum class IndicationOrder {
    Default,  ///< with the virtual clock before the answer, else beside it
    Before,   ///< before the answer goes out
    After     ///< after it; with the virtual clock at the next request, or when time is told to
              ///< pass
};

/// When in a request's life an action is carried out.
enum class Moment {
    BeforeDelivery,  ///< the modem has not seen the request
    BeforeReply,     ///< it is carried out, and not answered
    AfterReply,      ///< the answer is out, and its sender about to go on
    Idle             ///< when time is told to pass (ModemEmulator::passTime)
};

struct Consequence {
    Moment moment = Moment::AfterReply;
    Action action;
};

/// What to do to requests of a kind. Members that are not set change nothing.
struct Fault {
    unsigned messageId = 0;  ///< the kind of request: RAV_WDS_*_V01; 0 for all
    unsigned nth = 1;        ///< which of them, counted from 1 from when the fault was added
    /// Answered so much later, at most a day; may outlast the time-out. The modem carries the
    /// request out at once all the same.
    std::chrono::milliseconds delay{0};
    std::optional<int> transportResult{};  ///< fails in transport, before the modem sees it
    std::optional<uint32_t> error{};       ///< refused by the modem with this error code

    unsigned every = 0;  ///< if not 0: and again every so many requests from the nth on
    double probability =
        0;              ///< if not 0: of the nth and all later ones, each with this probability
    bool drop = false;  ///< carried out and never answered
    Lie lie = Lie::None;
    IndicationFault indications = IndicationFault::None;
    IndicationOrder order = IndicationOrder::Default;
    std::vector<Consequence> consequences{};
    std::shared_ptr<std::atomic<unsigned>> struck{};  ///< counts the requests that it strikes
};

/// Something that happens at a time, counted from when the scenario was begun.
struct TimedAction {
    std::chrono::milliseconds at{0};
    Action action;
};

/// What is to happen to a modem and its clients.
struct Scenario {
    uint64_t seed = 0;  ///< of everything random in it
    std::vector<Fault> faults{};
    std::vector<TimedAction> events{};
    /// The next power-on is so much late.
    std::optional<std::chrono::milliseconds> startsAfter{};
    bool neverStarts = false;  ///< the next power-on does not happen
    std::optional<unsigned> capacity3gpp{};
    std::optional<unsigned> capacity3gpp2{};
};

}  // namespace kiv::emulator

#endif
