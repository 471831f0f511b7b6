#include "ScenarioFile.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string_view>
#include <utility>

namespace kiv::emulator {
namespace {

using Json = nlohmann::json;
using std::chrono::milliseconds;

constexpr int64_t kLongestMs = int64_t{24} * 3600 * 1000;

[[noreturn]] void fail(const std::string& where, const std::string& what) {
    throw ScenarioFileError((where.empty() ? "the file" : where) + ": " + what);
}

template <class Value>
using Names = std::vector<std::pair<std::string_view, Value>>;

template <class Value>
Value choose(const Json& json, const std::string& where, const Names<Value>& names) {
    std::string known;
    for (const auto& [name, value] : names) {
        if (json.is_string() && json.get_ref<const std::string&>() == name) {
            return value;
        }
        known += (known.empty() ? "" : ", ") + std::string(name);
    }
    fail(where, "not one of " + known);
}

/// The members of one object. Each is taken once; finish refuses what nobody took.
class Members {
public:
    Members(const Json& json, std::string place) : object(json), where(std::move(place)) {
        if (!json.is_object()) {
            fail(where, "not an object");
        }
    }

    const Json* take(const char* key) {
        taken.insert(key);
        const auto found = object.find(key);
        return found == object.end() ? nullptr : &*found;
    }
    std::string at(const std::string& key) const { return where.empty() ? key : where + "." + key; }

    template <class Number>
    void number(const char* key, int64_t least, uint64_t most, Number& target) {
        if (const Json* json = take(key)) {
            // Those of JSON that are not negative are unsigned.
            const bool isKnown = json->is_number_unsigned()
                                     ? json->get<uint64_t>() <= most &&
                                           (least < 0 || json->get<uint64_t>() >= uint64_t(least))
                                     : json->is_number_integer() && json->get<int64_t>() >= least;
            if (!isKnown) {
                fail(at(key), "not a whole number from " + std::to_string(least) + " to " +
                                  std::to_string(most));
            }
            target = json->get<Number>();
        }
    }
    template <class Number>
    void number(const char* key, int64_t least, uint64_t most, std::optional<Number>& target) {
        if (object.contains(key)) {
            number(key, least, most, target.emplace());
        }
        taken.insert(key);
    }
    void span(const char* key, milliseconds& target) {
        int64_t count = target.count();
        number(key, 0, kLongestMs, count);
        target = milliseconds(count);
    }
    void span(const char* key, std::optional<milliseconds>& target) {
        if (object.contains(key)) {
            span(key, target.emplace());
        }
        taken.insert(key);
    }
    void flag(const char* key, bool& target) {
        if (const Json* json = take(key)) {
            if (!json->is_boolean()) {
                fail(at(key), "neither true nor false");
            }
            target = json->get<bool>();
        }
    }
    template <class Value>
    void choice(const char* key, Value& target, const Names<Value>& names) {
        if (const Json* json = take(key)) {
            target = choose(*json, at(key), names);
        }
    }
    template <size_t size>
    void text(const char* key, char (&target)[size], uint8_t& valid) {
        if (const Json* json = take(key)) {
            const auto* const value = json->get_ptr<const std::string*>();
            if (!value || value->size() >= size || value->find('\0') != std::string::npos) {
                fail(at(key), "not a text of at most " + std::to_string(size - 1) + " bytes");
            }
            value->copy(target, size - 1);
            valid = 1;
        }
    }
    template <class Read>
    void each(const char* key, Read read) {
        if (const Json* json = take(key)) {
            if (!json->is_array()) {
                fail(at(key), "not a list");
            }
            for (size_t i = 0; i < json->size(); ++i) {
                Members members((*json)[i], at(key) + "[" + std::to_string(i) + "]");
                read(members);
                members.finish();
            }
        }
    }
    void finish() const {
        for (const auto& [key, value] : object.items()) {
            if (taken.count(key) == 0) {
                fail(at(key), "unknown");
            }
        }
    }

private:
    const Json& object;
    const std::string where;
    std::set<std::string> taken;
};

std::vector<std::byte> readHex(const Json& json, const std::string& where) {
    const auto* const text = json.get_ptr<const std::string*>();
    const auto isHex = [](char c) { return std::strchr("0123456789abcdef", c) && c != '\0'; };
    if (!text || text->size() % 2 != 0 || !std::all_of(text->begin(), text->end(), isHex)) {
        fail(where, "not pairs of digits 0 to f");
    }
    std::vector<std::byte> bytes;
    for (size_t i = 0; i < text->size(); i += 2) {
        bytes.push_back(static_cast<std::byte>(std::stoi(text->substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

void readSettings(Members& members, Action& action) {
    wds_profile_settings_type_v01& settings = action.settings;
    members.text("name", settings.profile_name, settings.profile_name_valid);
    if (action.type == WDS_PROFILE_TYPE_3GPP_V01) {
        members.text("apn", settings.apn_name, settings.apn_name_valid);
        members.text("user", settings.user_name, settings.user_name_valid);
        members.text("password", settings.password, settings.password_valid);
    } else {
        members.text("apn", settings.apn_string_3gpp2, settings.apn_string_3gpp2_valid);
        members.text("user", settings.user_id_3gpp2, settings.user_id_3gpp2_valid);
        members.text("password", settings.password_3gpp2, settings.password_3gpp2_valid);
    }
    std::optional<uint64_t> types;
    members.number("apnTypes", 0, UINT64_MAX, types);
    settings.apn_type_mask_valid = types ? 1 : 0;
    settings.apn_type_mask = types.value_or(0);
}

Action readAction(Members& members) {
    using Kind = Action::Kind;
    Action action;
    if (!members.take("do")) {
        fail(members.at("do"), "missing");
    }
    members.choice("do", action.kind,
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
        members.flag("silent", action.silent);
        members.span("backAfterMs", action.comesBackAfter);
    } else if (action.kind == Kind::Indication) {
        members.number("id", 0, UINT16_MAX, action.messageId);
        if (const Json* bytes = members.take("bytes")) {
            action.bytes = readHex(*bytes, members.at("bytes"));
        }
    } else if (action.kind != Kind::PowerOn) {
        members.choice(
            "type", action.type,
            {{"3gpp", WDS_PROFILE_TYPE_3GPP_V01}, {"3gpp2", WDS_PROFILE_TYPE_3GPP2_V01}});
    }
    if (action.kind == Kind::ModifyProfile || action.kind == Kind::DeleteProfile) {
        members.number("index", 0, UINT8_MAX, action.index);
    }
    if (action.kind == Kind::CreateProfile || action.kind == Kind::ModifyProfile) {
        readSettings(members, action);
    }
    if (action.kind == Kind::CreateProfile) {
        members.flag("persistent", action.persistent);
    }
    if (action.kind == Kind::SetCapacity) {
        members.number("capacity", 0, WDS_PROFILE_LIST_MAX_V01, action.capacity);
    }
    return action;
}

void readProbability(Members& members, Fault& fault) {
    if (const Json* json = members.take("probability")) {
        fault.probability = json->is_number() ? json->get<double>() : 0;
        if (!(fault.probability > 0 && fault.probability <= 1)) {
            fail(members.at("probability"), "not a number above 0, up to 1");
        }
    }
}

Fault readFault(Members& members) {
    Fault fault;
    members.choice<unsigned>("request", fault.messageId,
                             {{"any", 0},
                              {"bind", RAV_WDS_BIND_SUBSCRIPTION_REQ_V01},
                              {"registerIndications", RAV_WDS_INDICATION_REGISTER_REQ_V01},
                              {"configureEvents", RAV_WDS_CONFIGURE_PROFILE_EVENT_LIST_REQ_V01},
                              {"create", RAV_WDS_CREATE_PROFILE_REQ_V01},
                              {"modify", RAV_WDS_MODIFY_PROFILE_SETTINGS_REQ_V01},
                              {"delete", RAV_WDS_DELETE_PROFILE_REQ_V01},
                              {"list", RAV_WDS_GET_PROFILE_LIST_REQ_V01},
                              {"get", RAV_WDS_GET_PROFILE_SETTINGS_REQ_V01}});
    members.number("nth", 1, UINT32_MAX, fault.nth);
    members.number("every", 1, UINT32_MAX, fault.every);
    readProbability(members, fault);
    members.span("delayMs", fault.delay);
    members.flag("drop", fault.drop);
    members.number("transport", INT32_MIN, 0, fault.transportResult);
    members.number("error", 1, UINT32_MAX, fault.error);
    members.choice("lie", fault.lie,
                   {{"countTooLarge", Lie::CountTooLarge},
                    {"unterminatedText", Lie::UnterminatedText},
                    {"indexOutOfRange", Lie::IndexOutOfRange},
                    {"unknownEnums", Lie::UnknownEnums}});
    members.choice("indications", fault.indications,
                   {{"malformed", IndicationFault::Malformed},
                    {"unknownId", IndicationFault::UnknownId},
                    {"duplicated", IndicationFault::Duplicated},
                    {"reordered", IndicationFault::Reordered},
                    {"withheld", IndicationFault::Withheld}});
    members.choice("order", fault.order,
                   {{"before", IndicationOrder::Before}, {"after", IndicationOrder::After}});
    members.each("then", [&](Members& one) {
        Consequence consequence;
        one.choice("when", consequence.moment,
                   {{"beforeDelivery", Moment::BeforeDelivery},
                    {"beforeReply", Moment::BeforeReply},
                    {"afterReply", Moment::AfterReply},
                    {"idle", Moment::Idle}});
        consequence.action = readAction(one);
        fault.consequences.push_back(std::move(consequence));
    });
    return fault;
}

Scenario readScenario(const Json& json) {
    Scenario scenario;
    Members members(json, "");
    members.number("seed", 0, UINT64_MAX, scenario.seed);
    members.span("startsAfterMs", scenario.startsAfter);
    members.flag("neverStarts", scenario.neverStarts);
    members.number("capacity3gpp", 0, WDS_PROFILE_LIST_MAX_V01, scenario.capacity3gpp);
    members.number("capacity3gpp2", 0, WDS_PROFILE_LIST_MAX_V01, scenario.capacity3gpp2);
    members.each("faults", [&](Members& one) { scenario.faults.push_back(readFault(one)); });
    members.each("events", [&](Members& one) {
        TimedAction event;
        one.span("atMs", event.at);
        event.action = readAction(one);
        scenario.events.push_back(std::move(event));
    });
    members.finish();
    return scenario;
}

/// The reader itself would keep the last of several members of one name.
class DuplicateFinder {
public:
    bool operator()(int /*depth*/, Json::parse_event_t event, Json& parsed) {
        if (event == Json::parse_event_t::object_start) {
            open.emplace_back();
        } else if (event == Json::parse_event_t::object_end) {
            open.pop_back();
        } else if (event == Json::parse_event_t::key &&
                   !open.back().insert(parsed.get<std::string>()).second) {
            fail(parsed.get<std::string>(), "given twice");
        }
        return true;
    }

private:
    std::vector<std::set<std::string>> open;
};

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
    try {
        DuplicateFinder duplicates;
        return readScenario(Json::parse(text, std::ref(duplicates)));
    } catch (const Json::exception& error) {
        // Names line and column.
        throw ScenarioFileError(path + ": " + error.what());
    } catch (const ScenarioFileError& error) {
        throw ScenarioFileError(path + ": " + error.what());
    }
}

}  // namespace kiv::emulator
