#include "World.h"

#include <android/log.h>

#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <stdexcept>

namespace kiv::test {
namespace {

using emulator::Action;
using emulator::Fault;
using emulator::IndicationFault;
using emulator::IndicationOrder;
using emulator::Lie;
using emulator::Moment;
using std::chrono::milliseconds;
using What = Event::What;

constexpr milliseconds kRequestLimit(1000), kCallLimit(50);
/// The request that settle makes; it asks for nothing and is not replayed.
constexpr const char* kProbe = "Match  None: ";

/// What happened, as the log and the modem tell it.
struct Trace {
    std::mutex mutex;
    std::vector<Event> events;
    std::map<std::string, std::list<std::string>> responses;
    std::map<std::string, Hint> hints;  ///< by the dump of the request
    std::vector<std::byte> answer;      ///< the modem's latest
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

std::string withSortedKeys(const std::string& response) {
    const std::string prefix = joinKeys({});
    if (response.rfind(prefix, 0) != 0) {
        return response;
    }
    std::set<std::string> keys;
    std::istringstream rest(response.substr(prefix.size()));
    for (std::string key; std::getline(rest, key, ',');) {
        keys.insert(key);
    }
    return joinKeys(keys);
}

void noteManager(const std::string& text) {
    const size_t at = std::min(text.find(" > "), text.find(" < "));
    if (at == std::string::npos) {
        return;
    }
    std::lock_guard lock(trace().mutex);
    if (text[at + 1] == '>') {
        requestText = text.substr(at + 3);
        trace().hints[requestText] = hint;
    } else if (requestText != kProbe) {
        trace().responses[requestText].push_back(withSortedKeys(text.substr(at + 3)));
    }
}

/// The log tells what the worker serves, in this order, and what its clients get.
void noteLine(const __android_logger_data*, const char* line) {
    static const std::string kServes = "Handling ", kIndicates = "ProfileCache: onIndication < ";
    const std::string text = line;
    if (text.rfind("Manager::", 0) == 0) {
        noteManager(text);
        return;
    }
    if (text == kServes + kProbe) {
        return;
    }
    ++trace().activity;
    if (text.rfind("rav_client_init error", 0) == 0) {
        trace().isClientRefused = true;
    }
    std::lock_guard lock(trace().mutex);
    if (text.rfind(kIndicates, 0) == 0) {
        trace().events.push_back({What::Indication, text.substr(kIndicates.size())});
    } else if (text.rfind(kServes, 0) == 0 && text != "Handling modem down") {
        const std::string request = text.substr(kServes.size());
        const auto known = trace().hints.find(request);
        trace().events.push_back(
            {What::Request, request, known == trace().hints.end() ? Hint() : known->second});
    }
}

void noteAnswer(const emulator::Request& request) {
    ++trace().activity;
    ++trace().requests;
    trace().add({What::Answer, {}, {}, request, std::exchange(trace().answer, {})});
}

/// Of every answer, right before it goes out.
Fault copyOfAnswers() {
    Fault fault{.every = 1};
    fault.rewrite = [](void* answer, size_t length) {
        const auto* const bytes = static_cast<std::byte*>(answer);
        trace().answer.assign(bytes, bytes + length);
    };
    return fault;
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
    put(3, &P::setApnTypesMask, kMasks[value(3)]);
    put(4, &P::setUserName, kNames[value(4)]);
    put(5, &P::setApnClass, static_cast<ApnClass>(value(5) + 1));
    put(6, &P::setIsEmergencySupported, value(6) > 1);
    put(7, &P::setAuthType, static_cast<AuthType>(value(7)));
    put(8, &P::setMaxPdnsConnPerBlock, value(8));
    put(9, &P::setIsClatEnabled, value(9) > 1);
    return params;
}

/// Looser than the policies ever ask, so that their requests never look like these.
std::shared_ptr<FilterProfileParams> filterOf(const Op& op) {
    const auto filter = std::make_shared<FilterProfileParams>(
        paramsOf<FilterProfileParams>(op, op.fields & op.extra));
    filter->addFilterMatchCriteria(toMask(FilterMatchType::ApnTypeBitmaskSubset) |
                                   static_cast<uint32_t>(op.values & 0x37));
    if (op.extra % 5 == 1) {
        filter->setFilterByTechType(static_cast<TechType>(op.values & 1));
    } else if (op.extra % 5 == 2) {
        filter->setFilterByIsKivProfile((op.values & 1) != 0);
    }
    return filter;
}

/// What goes wrong with the nth request of a kind; nothing for most numbers.
std::optional<Fault> faultOf(const Op& op) {
    const auto step = static_cast<Step>(op.step);
    Fault fault{.messageId = step == Step::Add ? unsigned{RAV_WDS_CREATE_PROFILE_REQ_V01}
                             : step == Step::Modify
                                 ? unsigned{RAV_WDS_MODIFY_PROFILE_SETTINGS_REQ_V01}
                             : step == Step::Delete || step == Step::Drop
                                 ? unsigned{RAV_WDS_DELETE_PROFILE_REQ_V01}
                                 : 0U,
                .nth = step == Step::RefreshComplete ? static_cast<unsigned>(op.extra % 4 + 1) : 1};
    const bool isOne = fault.messageId != 0 || step == Step::RefreshComplete;
    const int kind = isOne || op.fault < 4 ? op.fault : 0;
    const Action off{
        .silent = (op.extra & 1) != 0,
        .comesBackAfter = (op.extra & 2) != 0 ? std::optional(milliseconds(300)) : std::nullopt};
    static constexpr Action::Kind kChanges[] = {
        Action::Kind::CreateProfile, Action::Kind::DeleteProfile, Action::Kind::SubscriptionChange,
        Action::Kind::RefreshConfiguration};
    const Action other{.kind = kChanges[op.values & 3], .index = 1};
    switch (kind) {
        case 1:
            fault.error = WDS_ERR_INTERNAL_V01;
            return fault;
        case 2:
            fault.transportResult = RAV_CLIENT_ERR_NO_MEMORY;
            return fault;
        case 3:
        case 4:
            fault.delay = milliseconds(kind == 3 ? 999 : 1001);
            return fault;
        case 5:
            fault.drop = true;
            return fault;
        case 6:
        case 7:
            fault.order = kind == 6 ? IndicationOrder::Before : IndicationOrder::After;
            return fault;
        case 8:
        case 9:
        case 10:
        case 11:
        case 12:
            fault.indications = static_cast<IndicationFault>(kind - 7);
            return fault;
        case 13:
        case 14:
        case 15:
        case 16:
            fault.lie = static_cast<Lie>(kind - 12);
            return fault;
        case 17:
            fault.rewrite = [](void* answer, size_t length) { std::memset(answer, 0xFF, length); };
            return fault;
        case 18:
        case 19:
        case 20:
        case 21:
            fault.consequences = {{static_cast<Moment>(kind - 18), off}};
            return fault;
        case 22:
        case 23:
        case 24:
        case 25:
            fault.consequences = {{static_cast<Moment>(kind - 22), other}};
            return fault;
        case 26:
            fault.probability = 0.5;
            fault.drop = true;
            return fault;
        default:
            return std::nullopt;
    }
}

/// Those of the messaging client's operations whose failure leaves the library without a client.
constexpr emulator::ModemEmulator::Call kCalls[] = {emulator::ModemEmulator::Call::GetAnyService,
                                                    emulator::ModemEmulator::Call::ClientInit,
                                                    emulator::ModemEmulator::Call::NotifierInit};

std::map<uint64_t, std::string> cachedIn(const std::vector<std::string>& dump,
                                         std::list<std::string>& pending) {
    std::map<uint64_t, std::string> cached;
    size_t line = 1;
    for (; dump.at(line) != "Pending:"; ++line) {
        cached[std::stoull(dump[line])] = dump[line].substr(dump[line].find(": ") + 2);
    }
    while (dump.at(++line) != "Logs") {
        pending.push_back(dump[line].substr(2));
    }
    return cached;
}

std::string list(const std::map<uint64_t, std::string>& cached,
                 const std::list<std::string>& pending) {
    std::string text;
    for (const auto& [token, profile] : cached) {
        text += "\n  " + std::to_string(token) + ": " + profile;
    }
    for (const std::string& one : pending) {
        text += "\n  pending " + one;
    }
    return text;
}

std::multiset<std::string> withoutTokens(const std::map<uint64_t, std::string>& cached) {
    std::multiset<std::string> profiles;
    for (const auto& [token, profile] : cached) {
        profiles.insert(profile);
    }
    return profiles;
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
    for (const auto type : {WDS_PROFILE_TYPE_3GPP_V01, WDS_PROFILE_TYPE_3GPP2_V01}) {
        modem().setCapacity(type, 12);
    }
    modem().installFactoryProfiles();
    // Before the power is on, so that only one engine ever meets this modem.
    manager.init(0, true);
    settle();
    modem().setRequestObserver(noteAnswer);
    disarm();
    modem().start();
    settle();
    manager.refresh(PDCRefreshStatus::Complete);
    settle();
    // The numbers of tokens go on from engine to engine.
    const auto cached = cachedIn(manager.dump(), *std::make_unique<std::list<std::string>>());
    model.adoptToken(std::max_element(cached.begin(), cached.end())->first + 1);
    trace().events.clear();
    trace().responses.clear();
    manager.refresh(PDCRefreshStatus::Complete);
    settle();
    check();
}

World::~World() { modem().setRequestObserver(nullptr); }

int64_t World::requestsSoFar() { return trace().requests; }

void World::arm(Fault fault) { modem().addFault(std::move(fault)); }

void World::disarm() {
    modem().clearFaults();
    modem().addFault(copyOfAnswers());
}

void World::settle() {
    for (uint64_t before = UINT64_MAX; before != trace().activity;) {
        before = trace().activity;
        modem().waitForDeliveries(kPatience);
        // Two rounds through the worker, for one may overtake an event that lies there already.
        manager.match(FilterProfileParams(), nullptr);
        manager.match(FilterProfileParams(), nullptr);
    }
}

void World::play(Client& client, const Op& op) {
    const milliseconds start = modem().now();
    const int64_t before = trace().requests;
    act(client, op);
    if (isSeeded("slowCall")) {
        modem().passTime(kCallLimit + milliseconds(1));
    }
    const milliseconds took = modem().now() - start;
    modem().waitForDeliveries(kPatience);
    if (took > kRequestLimit * (trace().requests - before) + kCallLimit) {
        throw std::runtime_error("took too long: " + std::to_string(took.count()) + " ms");
    }
}

void World::playAlone(Client& client, const Op& op) {
    const auto step = static_cast<Step>(op.step);
    const std::optional<Fault> fault = faultOf(op);
    const bool isPower = step >= Step::PowerOff || (fault && !fault->consequences.empty());
    model.isSteady = !isPower && modem().waitForRegisteredClient(milliseconds(0));
    isFaithful = isFaithful && !isPower && model.isSteady &&
                 (!fault || (op.fault < 8 && fault->messageId != 0));
    if (fault) {
        arm(*fault);
    }
    if (isSeeded("lostIndication")) {
        arm({.indications = IndicationFault::Withheld});
    }
    play(client, op);
    settle();
    if (fault) {
        disarm();
        // For what waits until the modem is idle, or comes back.
        modem().passTime(milliseconds(1));
        settle();
        modem().passTime(milliseconds(400));
        settle();
        if (fault->indications == IndicationFault::Malformed) {
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

void World::act(Client& client, const Op& op) {
    const auto params = paramsOf<ProfileParams>(op, op.fields);
    const auto tech = static_cast<TechType>(op.extra % 4 == 3);
    Client::Slot& slot = client.slots[static_cast<size_t>(op.slot) % client.slots.size()];
    switch (static_cast<Step>(op.step)) {
        case Step::Get:
            manager.getProfile(slot.key);
            break;
        case Step::Match:
            if (slot.key) {
                hint.filter = filterOf(op);
                manager.match(*hint.filter, slot.key);
            }
            break;
        case Step::Filter:
            drop(slot);
            hint.filter = filterOf(op);
            for (const auto& key : manager.filter(*hint.filter)) {
                slot.key = key;
            }
            break;
        case Step::Add:
            drop(slot);
            slot.key = manager.addProfile({params, op.extra % 3 == 0, tech, op.extra % 5 == 0});
            break;
        case Step::Modify:
            if (slot.key) {
                manager.modifyProfile(ModifyProfileParams(params), slot.key);
            }
            break;
        case Step::Delete:
            if (slot.key) {
                manager.deleteProfile(slot.key);
            }
            break;
        case Step::Drop:
            drop(slot);
            break;
        case Step::Listen:
            listen(slot);
            break;
        case Step::RefreshStart:
        case Step::RefreshComplete: {
            std::lock_guard lock(hinted);
            hint.isStart = static_cast<Step>(op.step) == Step::RefreshStart;
            manager.refresh(hint.isStart ? PDCRefreshStatus::Start : PDCRefreshStatus::Complete);
            break;
        }
        default:
            if (op.step < static_cast<int>(Step::OtherCreates)) {
                drop(slot);
                std::lock_guard lock(policies);
                slot.key = follow(op, params, tech);
            } else {
                perform(op);
            }
    }
    hint = {};
}

/// Carries out a policy.
std::shared_ptr<IProfileKey> World::follow(const Op& op, const ProfileParams& params,
                                           TechType tech) {
    util.setProfileUpdateAllowed(op.extra % 2 == 1);
    switch (static_cast<Step>(op.step)) {
        case Step::SetupCall:
            return util.findOrCreateProfileForSetupDataCall(tech, params);
        case Step::EmergencyCall:
            return util.findOrCreateProfileForEmergencyDataCall(params);
        case Step::LteAttach:
            return util.findOrCreateProfileForLteAttach(params);
        case Step::MatchLteAttach:
            util.matchLteAttachProfileId(op.extra % 6, params);
            return nullptr;
        case Step::ByApnClass:
            util.updateModemProfileByApnClass({params}, {params});
            return nullptr;
        default:
            util.updateAPNTypeBitmaskOnModemProfile({params, params});
            return nullptr;
    }
}

/// What is not the library's doing.
void World::perform(const Op& op) {
    const bool is3gpp = op.values % 4 != 3;
    Action action{.type = is3gpp ? WDS_PROFILE_TYPE_3GPP_V01 : WDS_PROFILE_TYPE_3GPP2_V01,
                  .index = static_cast<uint8_t>(op.extra % 6),
                  .persistent = op.values % 2 == 0};
    const Modem3gppProfile profile3gpp(paramsOf<ProfileParams>(op, op.fields));
    const Modem3gpp2Profile profile3gpp2(paramsOf<ProfileParams>(op, op.fields));
    action.settings = is3gpp ? profile3gpp.constructAddRequest().settings
                             : profile3gpp2.constructAddRequest().settings;
    action.capacity = static_cast<unsigned>(op.extra % 12);
    action.silent = op.extra % 2 == 1;
    const auto step = static_cast<Step>(op.step);
    static const std::map<Step, Action::Kind> kKinds = {
        {Step::OtherCreates, Action::Kind::CreateProfile},
        {Step::OtherModifies, Action::Kind::ModifyProfile},
        {Step::OtherDeletes, Action::Kind::DeleteProfile},
        {Step::SubscriptionChange, Action::Kind::SubscriptionChange},
        {Step::ProfileReady, Action::Kind::ProfileReady},
        {Step::RefreshConfiguration, Action::Kind::RefreshConfiguration},
        {Step::SetCapacity, Action::Kind::SetCapacity},
        {Step::PowerOff, Action::Kind::PowerOff}};
    const auto kind = kKinds.find(step);
    if (kind != kKinds.end()) {
        action.kind = kind->second;
        modem().perform(action);
    } else if (step == Step::Restart) {
        if (op.fault > 26 && op.fault < 30) {
            modem().failNextCall(kCalls[op.fault - 27], RAV_CLIENT_ERR_NO_MEMORY);
            trace().isClientRefused = true;
        }
        modem().restart();
    } else {
        renew();
    }
}

/// A new engine, whose cache is empty.
void World::renew() {
    settle();
    trace().add({What::Engine});
    manager.init(0, true);
    trace().isClientRefused = false;
    settle();
}

void World::drop(Client::Slot& slot) {
    const auto released = std::exchange(slot.listeners, {});
    for (const auto& listener : released) {
        listener->isReleased = true;
    }
    slot.key.reset();
    for (const auto& listener : released) {
        listener->isDropped = true;
    }
}

void World::drop(Client& client) {
    for (Client::Slot& slot : client.slots) {
        drop(slot);
    }
}

void World::listen(Client::Slot& slot) {
    if (!slot.key) {
        return;
    }
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
    const auto cached = cachedIn(manager.dump(), pending);
    if (cached != model.cached() || pending != model.expectedIndications()) {
        throw std::runtime_error("the cache differs: expected" +
                                 list(model.cached(), model.expectedIndications()) + "\nheld" +
                                 list(cached, pending));
    }
    if (isFaithful && (!pending.empty() || withoutTokens(cached) != Model::dumpModem())) {
        throw std::runtime_error("the cache has lost the modem:" + list(cached, pending));
    }
    for (const auto& listener : listeners) {
        const int calls = listener->calls;
        if (listener->isLate || (listener->isReleased ? calls > 1 : calls != listener->expected)) {
            throw std::runtime_error("a listener was called " + std::to_string(calls) +
                                     " times, expected " + std::to_string(listener->expected));
        }
    }
}

void World::recover() {
    disarm();
    isFaithful = model.isSteady = false;
    if (trace().isClientRefused) {
        renew();
    }
    modem().start();
    settle();
    letUndecodedGo();
    modem().restart();
    settle();
    if (!modem().waitForRegisteredClient(milliseconds(0))) {
        throw std::runtime_error("the library has no client after the modem's return");
    }
    check();
    model.isSteady = true;
    manager.refresh(PDCRefreshStatus::Complete);
    settle();
    if (isSeeded("unreadChange")) {
        modem().stop();
        modem().createProfile(WDS_PROFILE_TYPE_3GPP_V01, settings3gpp("untold"), true);
        modem().start();
    }
    check();
    std::list<std::string> pending;
    const auto cached = cachedIn(manager.dump(), pending);
    if (withoutTokens(cached) != Model::dumpModem()) {
        throw std::runtime_error("the cache differs from the modem:" + list(cached, pending));
    }
}

}  // namespace kiv::test
