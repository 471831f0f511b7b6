#include "World.h"

#include <android/log.h>

#include <algorithm>

#include "Manager.h"
#include "Util.h"

namespace kiv::test {
namespace {

using emulator::Action;
using emulator::Fault;
using emulator::Moment;
using std::chrono::milliseconds;
using What = Event::What;

/// The request that settle makes; it asks for nothing and is not replayed.
constexpr const char* kProbe = "Match  None: ";
constexpr size_t kLongestLine = 511;
constexpr int kFaithfulFaults = 7;  ///< of those that faultOf lists, the first

/// What happened, as the log and the modem tell it.
struct Trace {
    std::mutex mutex;
    std::vector<Event> events;
    Model::Responses responses;
    std::map<std::string, Hint> hints;  ///< by the dump of the request
    std::atomic<uint64_t> activity{0};
    std::atomic<int64_t> requests{0};
    std::atomic<bool> isClientRefused{false};  ///< meant: only a new engine tries again

    void add(Event event) {
        std::lock_guard lock(mutex);
        events.push_back(std::move(event));
    }
};
/// Never destroyed: the library logs until the process ends.
Trace& trace() {
    static Trace& one = *new Trace;
    return one;
}
thread_local Hint hint;
thread_local std::string requestText;

Manager& manager() { return Manager::getInstance(); }

void noteClient(const std::string& text) {
    const size_t at = std::min(text.find(" > "), text.find(" < "));
    if (at == std::string::npos) {
        return;
    }
    std::lock_guard lock(trace().mutex);
    if (text[at + 1] == '>') {
        requestText = text.substr(at + 3);
        trace().hints[requestText] = hint;
    } else if (requestText != kProbe) {
        const bool isCut = text.size() == kLongestLine;
        trace().responses[requestText].push_back(text.substr(at + 3) + (isCut ? "*" : ""));
    }
}

/// The log tells what the worker serves, in this order, and what its clients hear.
void noteLine(const __android_logger_data*, const char* line) {
    static const std::string kServes = "Handling ", kIndicates = "ProfileCache: onIndication < ";
    const std::string text = line;
    if (text.rfind("Manager::", 0) == 0) {
        noteClient(text);
    } else if (text != kServes + kProbe) {
        ++trace().activity;
        if (text.rfind(kIndicates, 0) == 0) {
            trace().add({What::Indication, text.substr(kIndicates.size())});
        } else if (text.rfind(kServes, 0) == 0 && text != "Handling modem down") {
            const std::string request = text.substr(kServes.size());
            std::lock_guard lock(trace().mutex);
            const auto known = trace().hints.find(request);
            trace().events.push_back(
                {What::Request, request, known == trace().hints.end() ? Hint() : known->second});
        } else if (text.rfind("rav_client_init error", 0) == 0) {
            trace().isClientRefused = true;
        }
    }
}

template <class Params>
Params paramsOf(const Op& op, int fields) {
    static constexpr const char* kApns[] = {"", "Internet", "ims", "IMS.net"};
    static constexpr const char* kNames[] = {"me", "you", "Me", ""};
    static constexpr uint32_t kMasks[] = {1, 0x40, 0x209, 0x800};
    Params params;
    const auto value = [&](int field) { return op.values >> (2 * field) & 3; };
    const auto put = [&](int field, auto set, auto chosen) {
        if ((fields >> field & 1) != 0) {
            (params.*set)(chosen);
        }
    };
    using P = Params;
    put(0, &P::setApnName, kApns[value(0)]);
    put(1, &P::setHomeIPType, static_cast<IPType>(std::max(value(1), 1)));
    put(2, &P::setRoamIPType, static_cast<IPType>(std::max(value(2), 1)));
    put(3, static_cast<void (P::*)(uint32_t)>(&P::setApnTypesMask), kMasks[value(3)]);
    put(4, &P::setUserName, kNames[value(4)]);
    put(5, &P::setApnClass, static_cast<ApnClass>(value(5) + 1));
    put(6, &P::setIsEmergencySupported, value(6) > 1);
    put(7, &P::setAuthType, static_cast<AuthType>(value(7)));
    put(8, &P::setMaxPdnsConnPerBlock, value(8));
    put(9, &P::setIsClatEnabled, value(9) > 1);
    return params;
}

/// Looser than the policies ever ask, so that their requests never look like these.
const FilterProfileParams& filterOf(const Op& op) {
    hint.filter = std::make_shared<FilterProfileParams>(
        paramsOf<FilterProfileParams>(op, op.fields & op.extra));
    hint.filter->addFilterMatchCriteria(toMask(FilterMatchType::ApnTypeBitmaskSubset) |
                                        static_cast<uint32_t>(op.values & 0x37));
    if (op.extra % 5 == 1) {
        hint.filter->setFilterByTechType(static_cast<TechType>(op.values & 1));
    } else if (op.extra % 5 == 2) {
        hint.filter->setFilterByIsKivProfile((op.values & 1) != 0);
    }
    return *hint.filter;
}

struct Turn {
    World& world;
    Slot& slot;
    const Op& op;
    const ProfileParams params;
    const TechType tech;
    Util util{};
};
/// What a client's step does with the key of its slot. The requests of policies look alike.
enum class Use { TakesKey, MakesKey, IsPolicy, HasNone };
struct Own {
    Use use;
    void (*carryOut)(Turn&);
};
const std::map<Step, Own>& ownSteps() {
    static const auto& steps = *new std::map<Step, Own>{
        {Step::Get, {Use::TakesKey, [](Turn& t) { manager().getProfile(t.slot.key); }}},
        {Step::Match,
         {Use::TakesKey, [](Turn& t) { manager().match(filterOf(t.op), t.slot.key); }}},
        {Step::Modify,
         {Use::TakesKey,
          [](Turn& t) { manager().modifyProfile(ModifyProfileParams(t.params), t.slot.key); }}},
        {Step::Delete, {Use::TakesKey, [](Turn& t) { manager().deleteProfile(t.slot.key); }}},
        {Step::Listen, {Use::TakesKey, [](Turn& t) { t.world.listen(t.slot); }}},
        {Step::Drop, {Use::TakesKey, [](Turn& t) { t.world.drop(t.slot); }}},
        {Step::Filter,
         {Use::MakesKey,
          [](Turn& t) {
              for (const auto& key : manager().filter(filterOf(t.op))) {
                  t.slot.key = key;
              }
          }}},
        {Step::Add,
         {Use::MakesKey,
          [](Turn& t) {
              const int extra = t.op.extra;
              t.slot.key = manager().addProfile({t.params, extra % 3 == 0, t.tech, extra % 5 == 0});
          }}},
        {Step::SetupCall,
         {Use::IsPolicy,
          [](Turn& t) {
              t.slot.key = t.util.findOrCreateProfileForSetupDataCall(t.tech, t.params);
          }}},
        {Step::EmergencyCall,
         {Use::IsPolicy,
          [](Turn& t) { t.slot.key = t.util.findOrCreateProfileForEmergencyDataCall(t.params); }}},
        {Step::LteAttach,
         {Use::IsPolicy,
          [](Turn& t) { t.slot.key = t.util.findOrCreateProfileForLteAttach(t.params); }}},
        {Step::MatchLteAttach,
         {Use::IsPolicy,
          [](Turn& t) { t.util.matchLteAttachProfileId(t.op.extra % 6, t.params); }}},
        {Step::ByApnClass,
         {Use::IsPolicy,
          [](Turn& t) { t.util.updateModemProfileByApnClass({t.params}, {t.params}); }}},
        {Step::ByApnType,
         {Use::IsPolicy, [](Turn& t) { t.util.updateAPNTypeBitmaskOnModemProfile({t.params}); }}},
        {Step::RefreshComplete, {Use::HasNone, [](Turn& t) { t.world.refresh(false); }}},
        {Step::RefreshStart, {Use::HasNone, [](Turn& t) { t.world.refresh(true); }}},
    };
    return steps;
}

/// What another party does, or the modem itself.
constexpr std::pair<Step, Action::Kind> kOthersSteps[] = {
    {Step::OtherCreates, Action::Kind::CreateProfile},
    {Step::OtherModifies, Action::Kind::ModifyProfile},
    {Step::OtherDeletes, Action::Kind::DeleteProfile},
    {Step::SubscriptionChange, Action::Kind::SubscriptionChange},
    {Step::ProfileReady, Action::Kind::ProfileReady},
    {Step::RefreshConfiguration, Action::Kind::RefreshConfiguration},
    {Step::SetCapacity, Action::Kind::SetCapacity},
    {Step::PowerOff, Action::Kind::PowerOff}};

/// What goes wrong with a request of the operation; nothing for most numbers.
std::optional<Fault> faultOf(const Op& op) {
    const Action off{
        .silent = op.extra % 2 == 1,
        .comesBackAfter = op.extra % 4 < 2 ? std::optional(milliseconds(300)) : std::nullopt};
    const Action other{.kind = kOthersSteps[op.values % 6].second, .index = 1};
    std::vector<Fault> faults = {{},
                                 {.error = WDS_ERR_INTERNAL_V01},
                                 {.transportResult = RAV_CLIENT_ERR_NO_MEMORY},
                                 {.delay = milliseconds(999)},
                                 {.delay = milliseconds(1001)},
                                 {.drop = true},
                                 {.order = emulator::IndicationOrder::Before},
                                 {.order = emulator::IndicationOrder::After},
                                 {.probability = 0.5, .drop = true}};
    using emulator::IndicationFault;
    using emulator::Lie;
    static constexpr std::pair<IndicationFault, Lie> kWrong[] = {
        {IndicationFault::Malformed, Lie::CountTooLarge},
        {IndicationFault::UnknownId, Lie::UnterminatedText},
        {IndicationFault::Duplicated, Lie::IndexOutOfRange},
        {IndicationFault::Reordered, Lie::UnknownEnums},
        {IndicationFault::Withheld, Lie::None}};
    for (const auto& [indications, lie] : kWrong) {
        faults.push_back({.indications = indications});
        faults.push_back({.lie = lie});
    }
    for (const Moment moment :
         {Moment::BeforeDelivery, Moment::BeforeReply, Moment::AfterReply, Moment::Idle}) {
        faults.push_back({.consequences = {{moment, off}}});
        // More at once than the worker takes in one turn, or just one.
        faults.push_back({.consequences = std::vector<emulator::Consequence>(
                              op.extra % 2 == 1 ? 6 : 1, {moment, other})});
    }
    static const std::map<Step, unsigned> kMessages = {
        {Step::Add, RAV_WDS_CREATE_PROFILE_REQ_V01},
        {Step::Modify, RAV_WDS_MODIFY_PROFILE_SETTINGS_REQ_V01},
        {Step::Delete, RAV_WDS_DELETE_PROFILE_REQ_V01},
        {Step::Drop, RAV_WDS_DELETE_PROFILE_REQ_V01},
        {Step::RefreshComplete, 0}};
    // Where several requests may meet a change of another, their order is the scheduler's.
    const auto meant = kMessages.find(op.step);
    const size_t count = meant != kMessages.end() ? faults.size() : 4;
    const auto number = static_cast<size_t>(op.fault);
    if (number == 0 || number >= count) {
        return std::nullopt;
    }
    faults[number].messageId = meant != kMessages.end() ? meant->second : 0;
    faults[number].nth =
        op.step == Step::RefreshComplete ? 1 + static_cast<unsigned>(op.extra % 4) : 1;
    return faults[number];
}

std::map<uint64_t, std::string> cached(std::list<std::string>& pending) {
    const auto dump = manager().dump();
    std::map<uint64_t, std::string> profiles;
    size_t line = 1;
    for (; dump.at(line) != "Pending:"; ++line) {
        profiles[std::stoull(dump[line])] = dump[line].substr(dump[line].find(": ") + 2);
    }
    while (dump.at(++line) != "Logs") {
        pending.push_back(dump[line].substr(2));
    }
    return profiles;
}

std::string textOf(const std::map<uint64_t, std::string>& profiles,
                   const std::list<std::string>& pending) {
    std::string text;
    for (const auto& [token, profile] : profiles) {
        text += "\n  " + std::to_string(token) + ": " + profile;
    }
    for (const std::string& one : pending) {
        text += "\n  pending " + one;
    }
    return text;
}

bool equalsModem(const std::map<uint64_t, std::string>& profiles) {
    std::multiset<std::string> dumps;
    for (const auto& [token, profile] : profiles) {
        dumps.insert(profile);
    }
    return dumps == Model::dumpModem();
}

}  // namespace

uint64_t countFrom(const char* variable, uint64_t otherwise) {
    const char* const text = getenv(variable);
    return text != nullptr ? std::stoull(text) : otherwise;
}

World::World() {
    __android_log_set_minimum_priority(ANDROID_LOG_INFO);
    __android_log_set_logger(noteLine);
    modem().stop();
    settle();
    modem().factoryReset();
    modem().useVirtualClock(true);
    modem().setCapacity(WDS_PROFILE_TYPE_3GPP_V01, 12);
    modem().setCapacity(WDS_PROFILE_TYPE_3GPP2_V01, 12);
    modem().installFactoryProfiles();
    modem().setHook([](const emulator::Request& request, const void* answer, size_t length) {
        ++trace().activity;
        ++trace().requests;
        const auto* const bytes = static_cast<const std::byte*>(answer);
        trace().add({What::Answer, {}, {}, request, {bytes, bytes + length}});
    });
    // Before the power is on, so that only one engine ever meets this modem.
    manager().init(0, true);
    settle();
    modem().start();
    settle();
    refresh(false);
    settle();
    // The numbers of tokens go on from engine to engine.
    std::list<std::string> pending;
    model.nextToken = cached(pending).rbegin()->first + 1;
    trace().events.clear();
    trace().responses.clear();
    refresh(false);
    settle();
    check();
}

World::~World() { modem().setHook(nullptr); }

int64_t World::requestsSoFar() { return trace().requests; }

void World::settle() {
    const auto soFar = [] { return trace().activity + modem().callbacksSoFar(); };
    uint64_t before = soFar();
    for (int quietRounds = 0; quietRounds < 2;) {
        // Two rounds through the worker, for one may overtake an event that lies there already.
        manager().match(FilterProfileParams(), nullptr);
        manager().match(FilterProfileParams(), nullptr);
        modem().waitForDeliveries(kPatience);
        const uint64_t now = soFar();
        quietRounds = now == before ? quietRounds + 1 : 0;
        before = now;
    }
}

void World::play(Client& client, const Op& op) {
    // In this order: a request of another client that takes up time must count.
    const int64_t before = requestsSoFar();
    const milliseconds start = modem().now();
    Slot& slot = client.at(static_cast<size_t>(op.slot));
    Turn turn{*this, slot, op, paramsOf<ProfileParams>(op, op.fields),
              static_cast<TechType>(op.extra % 4 == 3)};
    turn.util.setProfileUpdateAllowed(op.extra % 2 == 1);
    const auto own = ownSteps().find(op.step);
    if (own == ownSteps().end()) {
        interfere(op, turn.params);
    } else {
        const Use use = own->second.use;
        if (use == Use::MakesKey || use == Use::IsPolicy) {
            drop(slot);
        }
        std::unique_lock lock(policies, std::defer_lock);
        if (use == Use::IsPolicy) {
            lock.lock();
        }
        if (slot.key || use != Use::TakesKey) {
            own->second.carryOut(turn);
        }
    }
    hint = {};
    if (isSeeded("slowCall")) {
        modem().passTime(milliseconds(51));
    }
    const milliseconds took = modem().now() - start;
    modem().waitForDeliveries(kPatience);
    Model::require(took <= milliseconds(1000 * (requestsSoFar() - before) + 50),
                   "took too long: " + std::to_string(took.count()) + " ms");
}

void World::playAlone(Client& client, const Op& op) {
    const std::optional<Fault> fault = faultOf(op);
    // What another deletes may be the library's own by the time that it hears of it.
    const auto other = fault && !fault->consequences.empty()
                           ? std::optional(fault->consequences[0].action.kind)
                           : std::nullopt;
    const bool isLost = isLoss(op.step) || other == Action::Kind::PowerOff;
    const bool isHeard = other ? other != Action::Kind::DeleteProfile : op.fault <= kFaithfulFaults;
    model.isSteady = !isLost && modem().waitForRegisteredClient(milliseconds(0));
    isFaithful = isFaithful && model.isSteady && (!fault || (isHeard && fault->messageId != 0));
    if (fault) {
        modem().addFault(*fault);
    }
    if (isSeeded("lostIndication")) {
        modem().addFault({.indications = emulator::IndicationFault::Withheld});
    }
    play(client, op);
    settle();
    if (fault) {
        modem().clearFaults();
        // For what waits until the modem is idle, and then for its return.
        for (const auto span : {milliseconds(1), milliseconds(400)}) {
            modem().passTime(span);
            settle();
        }
        if (fault->indications == emulator::IndicationFault::Malformed) {
            letUndecodedGo();
        }
    }
    check();
}

/// What lies behind an indication that can't be decoded waits for the next one.
void World::letUndecodedGo() {
    for (int i = 0; i < 4; ++i) {
        modem().sendIndication(RAV_WDS_BIND_SUBSCRIPTION_REQ_V01, {std::byte{0}});
        settle();
    }
}

/// What is not the doing of the library's clients.
void World::interfere(const Op& op, const ProfileParams& params) {
    const bool is3gpp = op.values % 4 != 3;
    const auto* const act = std::find_if(std::begin(kOthersSteps), std::end(kOthersSteps),
                                         [&](const auto& one) { return one.first == op.step; });
    if (act != std::end(kOthersSteps)) {
        modem().perform({.kind = act->second,
                         .silent = op.extra % 2 == 1,
                         .type = is3gpp ? WDS_PROFILE_TYPE_3GPP_V01 : WDS_PROFILE_TYPE_3GPP2_V01,
                         .index = static_cast<uint8_t>(op.extra % 6),
                         .persistent = op.values % 2 == 0,
                         .settings = is3gpp
                                         ? Modem3gppProfile(params).constructAddRequest().settings
                                         : Modem3gpp2Profile(params).constructAddRequest().settings,
                         .capacity = static_cast<unsigned>(op.extra % 12)});
    } else if (op.step == Step::Restart) {
        using Call = emulator::ModemEmulator::Call;
        if (op.fault >= 20 && op.fault < 23) {
            modem().failNextCall(op.fault == 20   ? Call::GetAnyService
                                 : op.fault == 21 ? Call::ClientInit
                                                  : Call::NotifierInit,
                                 RAV_CLIENT_ERR_NO_MEMORY);
            trace().isClientRefused = true;
        }
        modem().restart();
    } else {
        renew();
    }
}

/// A new engine, whose cache is empty.
void World::renew() {
    modem().clearFaults();
    settle();
    trace().add({What::Engine});
    manager().init(0, true);
    trace().isClientRefused = false;
    settle();
}

void World::refresh(bool isStart) {
    std::lock_guard lock(hinted);
    hint.isStart = isStart;
    manager().refresh(isStart ? PDCRefreshStatus::Start : PDCRefreshStatus::Complete);
    hint = {};
}

void World::drop(Slot& slot) {
    const auto released = std::exchange(slot.listeners, {});
    for (const auto& listener : released) {
        listener->isReleased = true;
    }
    slot.key.reset();
    for (const auto& listener : released) {
        listener->isDropped = true;
    }
}

void World::listen(Slot& slot) {
    const auto listener = std::make_shared<Listener>();
    slot.listeners.push_back(listener);
    std::lock_guard lock(hinted);
    listeners.push_back(listener);
    const std::string key = slot.key->dump();
    const std::string token = key.substr(key.find('=') + 1);
    {
        std::lock_guard traceLock(trace().mutex);
        trace().hints["Callback Register " + key + token] = {{}, listener, std::stoull(token)};
    }
    slot.key->registerExpirationListener([listener] {
        listener->calls += isSeeded("calledTwice") ? 2 : 1;
        listener->isLate = listener->isLate || listener->isDropped;
    });
}

void World::check() {
    std::vector<Event> events;
    {
        std::lock_guard lock(trace().mutex);
        events.swap(trace().events);
        responses.swap(trace().responses);
        trace().hints.clear();
    }
    if (isSeeded("otherOrder") && events.size() > 8) {
        std::swap(events[events.size() / 2], events[events.size() / 2 + 1]);
    }
    model.replay(events, responses);
    responses.clear();
    std::list<std::string> pending;
    const auto profiles = cached(pending);
    Model::require(profiles == model.cached() && pending == model.pending,
                   "the cache differs: expected" + textOf(model.cached(), model.pending) +
                       "\nheld" + textOf(profiles, pending));
    const bool isEqual = pending.empty() && equalsModem(profiles);
    Model::require(isEqual || !isFaithful,
                   "the cache has lost the modem:" + textOf(profiles, pending));
    isFaithful = isEqual;
    for (const auto& listener : listeners) {
        const int calls = listener->calls;
        const bool isRight = listener->isReleased ? calls <= 1 : calls == listener->expected;
        Model::require(isRight && !listener->isLate,
                       "a listener was called " + std::to_string(calls) + " times, expected " +
                           std::to_string(listener->expected));
    }
}

void World::recover() {
    modem().clearFaults();
    isFaithful = model.isSteady = false;
    if (trace().isClientRefused) {
        renew();
    }
    modem().start();
    settle();
    letUndecodedGo();
    modem().restart();
    settle();
    Model::require(modem().waitForRegisteredClient(milliseconds(0)),
                   "the library has no client after the modem's return");
    check();
    model.isSteady = true;
    refresh(false);
    settle();
    check();
    if (isSeeded("unreadChange")) {
        modem().stop();
        modem().createProfile(WDS_PROFILE_TYPE_3GPP_V01, settings3gpp("untold"), true);
    }
    std::list<std::string> pending;
    const auto profiles = cached(pending);
    Model::require(equalsModem(profiles),
                   "the cache differs from the modem:" + textOf(profiles, pending));
}

}  // namespace kiv::test
