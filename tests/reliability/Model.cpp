#include "Model.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include "Conversions.h"

namespace kiv::test {
namespace {

using What = Event::What;

/// Of equal requests, at most so many are under way at once.
constexpr int kClients = 4;

std::string textOf(TechType tech, int id) {
    return (tech == TechType::Tech3gpp ? "3GPP:" : "3GPP2:") + std::to_string(id);
}

TechType techOf(const std::string& text) {
    return text.rfind("3GPP2", 0) == 0 ? TechType::Tech3gpp2 : TechType::Tech3gpp;
}

std::shared_ptr<ModemProfile> imageOf(TechType tech, int id,
                                      const wds_get_profile_settings_resp_msg_v01& answer) {
    if (tech == TechType::Tech3gpp2) {
        return std::make_shared<Modem3gpp2Profile>(id, answer);
    }
    return std::make_shared<Modem3gppProfile>(id, answer);
}

bool isRegistration(const Event& event) {
    const unsigned id = event.asked.messageId;
    return event.what == What::Answer &&
           (id == RAV_WDS_BIND_SUBSCRIPTION_REQ_V01 || id == RAV_WDS_INDICATION_REGISTER_REQ_V01 ||
            id == RAV_WDS_CONFIGURE_PROFILE_EVENT_LIST_REQ_V01);
}

bool isSuccess(const Event* answer) {
    return answer != nullptr && answer->asked.transportResult == RAV_CLIENT_OK &&
           answer->asked.result == WDS_RESULT_SUCCESS_V01;
}

}  // namespace

bool isSeeded(const std::string& fault) {
    static const char* const seeded = getenv("KIVR_SEED_FAULT");
    return seeded != nullptr && fault == seeded;
}

std::string joinKeys(const std::set<std::string>& keys) {
    std::string text = "Filter Success ";
    for (const std::string& key : keys) {
        text += key + ",";
    }
    return text;
}

void Model::replay(const std::vector<Event>& events,
                   std::map<std::string, std::list<std::string>>& responses) {
    next = events.begin();
    end = events.end();
    while (next != end) {
        const Event& event = *next++;
        if (event.what == What::Indication) {
            indicate(event.text);
        } else if (event.what == What::Engine) {
            for (auto& [token, entry] : std::exchange(cache, {})) {
                drop(entry);
            }
            pending.clear();
            isBlocked = false;
        } else if (event.what == What::Request) {
            auto& heard = responses[event.text];
            const std::string expected = serve(event, heard.empty() ? "" : heard.front());
            const auto last = std::next(heard.begin(), std::min<long>(kClients, heard.size()));
            const auto found = std::find(heard.begin(), last, expected);
            if (found != last) {
                heard.erase(found);
            } else if (!expected.empty()) {
                throw std::runtime_error(event.text + ": expected " + expected + ", heard " +
                                         (heard.empty() ? "nothing" : heard.front()));
            }
        } else if (!isRegistration(event)) {
            throw std::runtime_error("unexpected request of kind " +
                                     std::to_string(event.asked.messageId));
        }
    }
}

std::map<uint64_t, std::string> Model::cached() const {
    std::map<uint64_t, std::string> dumps;
    for (const auto& [token, entry] : cache) {
        dumps[token] = entry.image ? entry.image->dump() : "null";
    }
    return dumps;
}

std::multiset<std::string> Model::dumpModem() {
    std::multiset<std::string> dumps;
    for (const auto type : {WDS_PROFILE_TYPE_3GPP_V01, WDS_PROFILE_TYPE_3GPP2_V01}) {
        for (const auto& profile : modem().profiles(type)) {
            wds_get_profile_settings_resp_msg_v01 record{};
            record.settings = profile.settings;
            dumps.insert(imageOf(convertProfileType(type), profile.index, record)->dump());
        }
    }
    return dumps;
}

/// The answer to the request that comes next; null if it could not be sent.
const Event* Model::ask(unsigned message, const Place& place) {
    if (next == end || next->what != What::Answer || isRegistration(*next)) {
        if (isSteady) {
            throw std::runtime_error("no request of kind " + std::to_string(message));
        }
        return nullptr;
    }
    const Event& answer = *next++;
    const bool isList = message == RAV_WDS_GET_PROFILE_LIST_REQ_V01;
    const auto type = Event::as<wds_get_profile_list_req_msg_v01>(answer.asked.bytes).profile_type;
    const auto sent = Event::as<wds_profile_identifier_type_v01>(answer.asked.bytes);
    const bool isAnyId = isList || message == RAV_WDS_CREATE_PROFILE_REQ_V01;
    const Place meant(convertProfileType(isList ? type : sent.profile_type),
                      isAnyId ? -1 : sent.profile_index);
    if (answer.asked.messageId != message || meant != place) {
        throw std::runtime_error("request of kind " + std::to_string(answer.asked.messageId) +
                                 " for " + textOf(meant.first, meant.second) + ", expected " +
                                 std::to_string(message) + textOf(place.first, place.second));
    }
    return &answer;
}

Model::Entry Model::read(const Place& place) {
    const Event* const answer = ask(RAV_WDS_GET_PROFILE_SETTINGS_REQ_V01, place);
    if (!isSuccess(answer)) {
        return {};
    }
    const auto record = Event::as<wds_get_profile_settings_resp_msg_v01>(answer->answer);
    return {imageOf(place.first, place.second, record)};
}

void Model::expect(const Entry& entry, const char* event) {
    pending.push_back(textOf(entry.image->getTechType(), entry.image->getProfileId()) + " " +
                      event);
}

/// The image goes, and those who listen are told.
void Model::drop(Entry& entry) {
    for (const auto& listener : entry.listeners) {
        listener->expected += listener->isReleased ? 0 : 1;
    }
    entry = {};
}

std::string Model::serve(const Event& request, const std::string& response) {
    const char* const text = request.text.c_str();
    char kind[16] = "";
    char tech[8] = "";
    int id = -1;
    uint64_t token = request.hint.token;
    const bool hasKey = sscanf(text, "%15s %7[^:]:%d token=%lu", kind, tech, &id, &token) == 4 ||
                        sscanf(text, "Callback Release %lu", &token) == 1 || request.hint.listener;
    const std::string name = kind;
    if (name == "Refresh") {
        isBlocked = request.hint.isStart;
        if (!isBlocked) {
            refresh();
        }
        return "Refresh Success";
    }
    const auto found = hasKey && !isBlocked ? cache.find(token) : cache.end();
    const bool isKnown = found != cache.end();
    const bool isReadable = isKnown && found->second.image;
    const auto outcome = [&](bool success) { return name + (success ? " Success" : " Failure"); };
    if (name == "Add") {
        return isBlocked ? "Add Failure " : "Add Success " + add(techOf(text + 4));
    }
    if (name == "Modify") {
        if (isReadable) {
            modify(found->second);
        }
        return outcome(isKnown);
    }
    if (name == "Delete") {
        return outcome(isKnown && remove(found, {techOf(tech), id}));
    }
    if (name == "Filter") {
        return isBlocked ? "Filter Failure " : filter(request.hint, response);
    }
    if (name == "Match") {
        const auto& filter = request.hint.filter;
        const bool fits = isReadable && (filter ? found->second.image->match(*filter)
                                                : response == "Match Success true");
        return outcome(!isBlocked) + (fits ? " true" : " false");
    }
    if (name == "Get") {
        return isReadable ? "Get Success " + found->second.image->get().dump() : "Get Failure ";
    }
    if (isReadable && request.hint.listener) {
        found->second.listeners.push_back(request.hint.listener);
    } else if (isReadable) {
        release(found);
    }
    return "";
}

std::string Model::add(TechType tech) {
    const uint64_t token = nextToken++;
    const Event* const answer = ask(RAV_WDS_CREATE_PROFILE_REQ_V01, {tech, -1});
    if (!isSuccess(answer)) {
        return "";
    }
    const auto sent = Event::as<wds_create_profile_req_msg_v01>(answer->asked.bytes);
    const auto made = Event::as<wds_create_profile_resp_msg_v01>(answer->answer);
    wds_get_profile_settings_resp_msg_v01 record{};
    record.persistent_valid = 1;
    record.persistent = sent.persistent;
    record.settings = sent.settings;
    Entry& entry = cache[token];
    entry = {imageOf(tech, made.profile.profile_index, record), true};
    entry.image->incRefCount();
    expect(entry, "Create");
    if (!isSeeded("forgottenRule")) {
        expect(entry, "Modify");
    }
    return textOf(tech, made.profile.profile_index) + " token=" + std::to_string(token);
}

/// Only what differs is sent, and nothing if nothing does.
void Model::modify(Entry& entry) {
    if (next == end || next->what != What::Answer || isRegistration(*next)) {
        return;
    }
    const Place place(entry.image->getTechType(), entry.image->getProfileId());
    const Event* const answer = ask(RAV_WDS_MODIFY_PROFILE_SETTINGS_REQ_V01, place);
    if (isSuccess(answer)) {
        wds_get_profile_settings_resp_msg_v01 record{};
        record.settings =
            Event::as<wds_modify_profile_settings_req_msg_v01>(answer->asked.bytes).settings;
        entry.image->apply(imageOf(place.first, place.second, record));
        expect(entry, "Modify");
    }
}

bool Model::remove(Entries::iterator place, const Place& where) {
    if (!isSuccess(ask(RAV_WDS_DELETE_PROFILE_REQ_V01, where))) {
        return false;
    }
    Entry entry = std::move(place->second);
    cache.erase(place);
    if (entry.image) {
        expect(entry, "Delete");
    }
    drop(entry);
    return true;
}

bool Model::release(Entries::iterator place) {
    const Entry& entry = place->second;
    if (entry.image->getRefCount() >= 2) {
        entry.image->decRefCount();
        return true;
    }
    return !entry.isOurs || entry.image->getIsPersistent() ||
           remove(place, {entry.image->getTechType(), entry.image->getProfileId()});
}

/// Of a policy's filter the model knows the response only.
std::string Model::filter(const Hint& hint, const std::string& response) {
    std::set<std::string> keys;
    for (const auto& [token, entry] : cache) {
        if (entry.image) {
            const auto& image = *entry.image;
            const std::string key = textOf(image.getTechType(), image.getProfileId()) +
                                    " token=" + std::to_string(token);
            if (hint.filter ? image.match(*hint.filter)
                            : response.find(key + ",") != std::string::npos) {
                entry.image->incRefCount();
                keys.insert(key);
            }
        }
    }
    return joinKeys(keys);
}

void Model::refresh() {
    for (auto& [token, entry] : std::exchange(cache, {})) {
        drop(entry);
    }
    for (const TechType tech : {TechType::Tech3gpp, TechType::Tech3gpp2}) {
        const Event* const answer = ask(RAV_WDS_GET_PROFILE_LIST_REQ_V01, {tech, -1});
        if (!isSuccess(answer)) {
            return;
        }
        const auto list = Event::as<wds_get_profile_list_resp_msg_v01>(answer->answer);
        const uint32_t count = std::min<uint32_t>(list.profile_list_len, WDS_PROFILE_LIST_MAX_V01);
        for (uint32_t i = 0; i < count; ++i) {
            const auto& info = list.profile_list[i];
            Entry entry = read({convertProfileType(info.profile_type), info.profile_index});
            cache[nextToken++] = std::move(entry);
        }
    }
}

void Model::indicate(const std::string& text) {
    const auto expected = std::find(pending.begin(), pending.end(), text);
    if (expected != pending.end()) {
        pending.erase(expected);
        return;
    }
    const std::string event = text.substr(text.find(' ') + 1);
    const Place place(techOf(text), std::stoi(text.substr(text.find(':') + 1)));
    if (event == "Create") {
        Entry entry = read(place);
        cache[nextToken++] = std::move(entry);
        return;
    }
    if (event != "Delete" && event != "Modify") {
        refresh();
        return;
    }
    for (auto one = cache.begin(); one != cache.end();) {
        const auto& image = one->second.image;
        const bool isMeant = image && Place(image->getTechType(), image->getProfileId()) == place;
        if (isMeant) {
            Entry fresh = event == "Modify" ? read(place) : Entry();
            drop(one->second);
            one->second = std::move(fresh);
        }
        one = isMeant && event == "Delete" ? cache.erase(one) : std::next(one);
    }
}

}  // namespace kiv::test
