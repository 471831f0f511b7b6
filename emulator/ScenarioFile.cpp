#include "ScenarioFile.h"

#include <fstream>
#include <sstream>
#include <utility>

#include "Json.h"
#include "Settings.h"
#include "WdsService.h"

namespace kiv::emulator {
namespace {

using std::chrono::milliseconds;

constexpr uint64_t kLongestMs = milliseconds(std::chrono::hours(24)).count();

template <class Value>
using Names = std::vector<std::pair<std::string_view, Value>>;

template <class Value>
void readChoice(JsonValue& members, const char* key, Value& target, const Names<Value>& names) {
    const auto json = members.find(key);
    if (!json) {
        return;
    }
    std::string known;
    for (const auto& [name, value] : names) {
        if (json->text() == name) {
            target = value;
            return;
        }
        known += (known.empty() ? "" : ", ") + std::string(name);
    }
    json->refuse("not one of " + known);
}

void readFlag(JsonValue& members, const char* key, bool& target) {
    if (const auto json = members.find(key)) {
        target = json->flag();
    }
}

template <class Span>
void readSpan(JsonValue& members, const char* key, Span& target) {
    if (const auto json = members.find(key)) {
        target = milliseconds(json->number(0, kLongestMs));
    }
}

template <class Read>
void readEach(JsonValue& members, const char* key, Read read) {
    if (const auto json = members.find(key)) {
        json->each([&](JsonValue& one) { one.object(read); });
    }
}

void readSettings(JsonValue& members, Action& action) {
    // The name in the file, and those of the record.
    static constexpr std::string_view kNames[][3] = {
        {"name", "profile_name", "profile_name"},
        {"apn", "apn_name", "apn_string_3gpp2"},
        {"user", "user_name", "user_id_3gpp2"},
        {"password", "password", "password_3gpp2"},
        {"apnTypes", "apn_type_mask", "apn_type_mask"}};
    for (const auto& [name, of3gpp, of3gpp2] : kNames) {
        const bool is3gpp = action.type == WDS_PROFILE_TYPE_3GPP_V01;
        if (auto json = members.find(name)) {
            findSetting(is3gpp ? of3gpp : of3gpp2).read(*json, action.settings);
        }
    }
}

Action readAction(JsonValue& members) {
    using Kind = Action::Kind;
    Action action;
    members.at("do");
    readChoice(members, "do", action.kind,
               {{"powerOn", Kind::PowerOn},
                {"powerOff", Kind::PowerOff},
                {"createProfile", Kind::CreateProfile},
                {"modifyProfile", Kind::ModifyProfile},
                {"deleteProfile", Kind::DeleteProfile},
                {"subscriptionChange", Kind::SubscriptionChange},
                {"profileReady", Kind::ProfileReady},
                {"refreshConfiguration", Kind::RefreshConfiguration},
                {"setCapacity", Kind::SetCapacity},
                {"indication", Kind::Indication}});
    if (action.kind == Kind::PowerOff) {
        readFlag(members, "silent", action.silent);
        readSpan(members, "backAfterMs", action.comesBackAfter);
    } else if (action.kind == Kind::Indication) {
        members.number("id", 0, UINT16_MAX, action.messageId);
        if (const auto bytes = members.find("bytes")) {
            action.bytes = bytes->bytes();
        }
    } else if (action.kind != Kind::PowerOn) {
        readChoice(members, "type", action.type,
                   {{"3gpp", WDS_PROFILE_TYPE_3GPP_V01}, {"3gpp2", WDS_PROFILE_TYPE_3GPP2_V01}});
    }
    if (action.kind == Kind::ModifyProfile || action.kind == Kind::DeleteProfile) {
        members.number("index", 0, UINT8_MAX, action.index);
    }
    if (action.kind == Kind::CreateProfile || action.kind == Kind::ModifyProfile) {
        readSettings(members, action);
    }
    if (action.kind == Kind::CreateProfile) {
        readFlag(members, "persistent", action.persistent);
    }
    if (action.kind == Kind::SetCapacity) {
        members.number("capacity", 0, WDS_PROFILE_LIST_MAX_V01, action.capacity);
    }
    return action;
}

Fault readFault(JsonValue& members) {
    Names<unsigned> requests{{"any", 0}};
    for (const Message& message : allMessages()) {
        requests.emplace_back(message.name, message.id);
    }
    Fault fault;
    readChoice(members, "request", fault.messageId, requests);
    members.number("nth", 1, UINT32_MAX, fault.nth);
    members.number("every", 1, UINT32_MAX, fault.every);
    if (const auto probability = members.find("probability")) {
        fault.probability = probability->probability();
    }
    readSpan(members, "delayMs", fault.delay);
    readFlag(members, "drop", fault.drop);
    members.number("transport", INT32_MIN, 0, fault.transportResult);
    members.number("error", 1, UINT32_MAX, fault.error);
    readChoice(members, "lie", fault.lie,
               {{"countTooLarge", Lie::CountTooLarge},
                {"unterminatedText", Lie::UnterminatedText},
                {"indexOutOfRange", Lie::IndexOutOfRange},
                {"unknownEnums", Lie::UnknownEnums}});
    readChoice(members, "indications", fault.indications,
               {{"malformed", IndicationFault::Malformed},
                {"unknownId", IndicationFault::UnknownId},
                {"duplicated", IndicationFault::Duplicated},
                {"reordered", IndicationFault::Reordered},
                {"withheld", IndicationFault::Withheld}});
    readChoice(members, "order", fault.order,
               {{"before", IndicationOrder::Before}, {"after", IndicationOrder::After}});
    readEach(members, "then", [&](JsonValue& one) {
        Consequence consequence;
        readChoice(one, "when", consequence.moment,
                   {{"beforeDelivery", Moment::BeforeDelivery},
                    {"beforeReply", Moment::BeforeReply},
                    {"afterReply", Moment::AfterReply},
                    {"idle", Moment::Idle}});
        consequence.action = readAction(one);
        fault.consequences.push_back(std::move(consequence));
    });
    return fault;
}

Scenario readScenario(JsonValue& members) {
    Scenario scenario;
    members.number("seed", 0, UINT64_MAX, scenario.seed);
    readSpan(members, "startsAfterMs", scenario.startsAfter);
    readFlag(members, "neverStarts", scenario.neverStarts);
    members.number("capacity3gpp", 0, WDS_PROFILE_LIST_MAX_V01, scenario.capacity3gpp);
    members.number("capacity3gpp2", 0, WDS_PROFILE_LIST_MAX_V01, scenario.capacity3gpp2);
    readEach(members, "faults", [&](JsonValue& one) { scenario.faults.push_back(readFault(one)); });
    readEach(members, "events", [&](JsonValue& one) {
        TimedAction event;
        readSpan(one, "atMs", event.at);
        event.action = readAction(one);
        scenario.events.push_back(std::move(event));
    });
    return scenario;
}

}  // namespace

Scenario readScenarioFile(const std::string& path) {
    std::ostringstream text;
    if (std::ifstream file(path, std::ios::binary); !file || !(text << file.rdbuf())) {
        // The stream also fails for a file without a byte, which the parser would refuse too.
        throw ScenarioFileError(path + ": can't be read, or is empty");
    }
    return parseScenario(path, text.str());
}

Scenario parseScenario(const std::string& path, std::string_view text) {
    Scenario scenario;
    try {
        readJson(path, text, [&](JsonValue& value) {
            value.object([&](JsonValue& members) { scenario = readScenario(members); });
        });
    } catch (const JsonError& error) {
        throw ScenarioFileError(error.what());
    }
    return scenario;
}

}  // namespace kiv::emulator
