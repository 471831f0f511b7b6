#ifndef TESTS_RELIABILITY_MODEL_H
#define TESTS_RELIABILITY_MODEL_H

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Conversions.h"
#include "EmulatedModem.h"
#include "FilterProfileParams.h"
#include "ModemProfile.h"

namespace kiv::test {

/// Whether KIVR_SEED_FAULT names this fault of the checks themselves, which must then fail.
inline bool isSeeded(const std::string& fault) {
    static const char* const seeded = getenv("KIVR_SEED_FAULT");
    return seeded != nullptr && fault == seeded;
}

/// One registered listener: what happened to it, and what the model expects.
struct Listener {
    std::atomic<int> calls{0};
    std::atomic<bool> isReleased{false};  ///< its key is being dropped
    std::atomic<bool> isDropped{false};
    std::atomic<bool> isLate{false};  ///< it was called after its key had been dropped
    int expected = 0;
};

/// What the dump of a request leaves out.
struct Hint {
    std::shared_ptr<FilterProfileParams> filter{};
    std::shared_ptr<Listener> listener{};
    uint64_t token = 0;    ///< whose listener it is
    bool isStart = false;  ///< of a refresh
};

/// Something that happened: the worker served a request or an indication, the modem answered, or a
/// new engine took over.
struct Event {
    enum class What { Request, Indication, Answer, Engine };
    What what = What::Request;
    std::string text{};  ///< the dump of the request or indication
    Hint hint{};
    emulator::Request asked{};
    std::vector<std::byte> answer{};  ///< as the library saw it

    template <class Record>
    static Record as(const std::vector<std::byte>& bytes) {
        Record record{};
        std::memcpy(&record, bytes.data(), std::min(sizeof(record), bytes.size()));
        return record;
    }
    bool isRegistration() const {
        const unsigned id = asked.messageId;
        return what == What::Answer && (id == RAV_WDS_BIND_SUBSCRIPTION_REQ_V01 ||
                                        id == RAV_WDS_INDICATION_REGISTER_REQ_V01 ||
                                        id == RAV_WDS_CONFIGURE_PROFILE_EVENT_LIST_REQ_V01);
    }
    bool isSuccess() const {
        return asked.transportResult == RAV_CLIENT_OK && asked.result == WDS_RESULT_SUCCESS_V01;
    }
};

/// What the cache and the list of expected indications must hold, which requests must go to the
/// modem, and what clients must hear, given what the worker served and the modem answered. Whether
/// a filter fits and what a modification changes are the profiles' own matter, tested elsewhere.
class Model {
public:
    using Responses = std::map<std::string, std::list<std::string>>;

    bool isSteady = true;  ///< the modem is there, so that every request is sent
    std::list<std::string> pending;
    uint64_t nextToken = 0;

    /// Takes the events; throws std::runtime_error at the first that must not be. Equal requests
    /// of four clients may have been under way at once, and heard their responses in any order.
    void replay(const std::vector<Event>& events, Responses& responses) {
        end = events.end();
        for (next = events.begin(); next != end;) {
            const Event& event = *next++;
            if (event.what == Event::What::Indication) {
                indicate(event.text);
            } else if (event.what == Event::What::Engine) {
                dropAll();
                pending.clear();
                isBlocked = false;
            } else if (event.what == Event::What::Request) {
                auto& heard = responses[event.text];
                const std::string first = heard.empty() ? "" : heard.front();
                const std::string expected = serve(event, first);
                const auto last = std::next(heard.begin(), std::min<long>(4, heard.size()));
                const auto found = std::find_if(heard.begin(), last, [&](const std::string& one) {
                    const bool isCut = !one.empty() && one.back() == '*';
                    return one == (isCut ? expected.substr(0, one.size() - 1) + "*" : expected);
                });
                if (found != last) {
                    heard.erase(found);
                } else {
                    require(expected.empty(), event.text + ": not " + expected + ", but " + first);
                }
            } else {
                require(event.isRegistration(),
                        "unexpected request " + std::to_string(event.asked.messageId));
            }
        }
    }

    /// The profiles by their tokens, as they are dumped.
    std::map<uint64_t, std::string> cached() const {
        std::map<uint64_t, std::string> dumps;
        for (const auto& [token, entry] : cache) {
            dumps[token] = entry.image ? entry.image->dump() : "null";
        }
        return dumps;
    }

    /// What the modem holds, as the library would dump it.
    static std::multiset<std::string> dumpModem() {
        std::multiset<std::string> dumps;
        for (const auto type : {WDS_PROFILE_TYPE_3GPP_V01, WDS_PROFILE_TYPE_3GPP2_V01}) {
            for (const auto& profile : modem().profiles(type)) {
                const Place place(convertProfileType(type), profile.index);
                dumps.insert(imageOf(place, profile.settings)->dump());
            }
        }
        return dumps;
    }

    static void require(bool condition, const std::string& failure) {
        if (!condition) {
            throw std::runtime_error(failure);
        }
    }

private:
    using Place = std::pair<TechType, int>;  ///< the id is -1 where there is none yet
    using Image = std::shared_ptr<ModemProfile>;
    struct Entry {
        Image image{};  ///< null if it could not be read
        bool isOurs = false;
        std::vector<std::shared_ptr<Listener>> listeners{};

        std::string name() const { return textOf({image->getTechType(), image->getProfileId()}); }
    };
    /// In the order in which the library keeps them.
    using Entries = std::map<uint64_t, Entry>;

    static std::string textOf(const Place& place) {
        return (place.first == TechType::Tech3gpp ? "3GPP:" : "3GPP2:") +
               std::to_string(place.second);
    }
    static TechType techOf(const std::string& text) {
        return text.rfind("3GPP2", 0) == 0 ? TechType::Tech3gpp2 : TechType::Tech3gpp;
    }
    static Image imageOf(const Place& place, const wds_profile_settings_type_v01& settings,
                         bool isPersistent = true) {
        wds_get_profile_settings_resp_msg_v01 record{};
        record.persistent_valid = 1;
        record.persistent = isPersistent;
        record.settings = settings;
        if (place.first == TechType::Tech3gpp2) {
            return std::make_shared<Modem3gpp2Profile>(place.second, record);
        }
        return std::make_shared<Modem3gppProfile>(place.second, record);
    }

    /// The answer to the request that comes next; null if it failed or could not be sent.
    const Event* ask(unsigned message, const Place& place) {
        if (next == end || next->what != Event::What::Answer || next->isRegistration()) {
            require(!isSteady, "no request " + std::to_string(message));
            return nullptr;
        }
        const Event& answer = *next++;
        const auto& bytes = answer.asked.bytes;
        const bool isList = message == RAV_WDS_GET_PROFILE_LIST_REQ_V01;
        const auto type = Event::as<wds_get_profile_list_req_msg_v01>(bytes).profile_type;
        const auto sent = Event::as<wds_profile_identifier_type_v01>(bytes);
        const Place meant(convertProfileType(isList ? type : sent.profile_type),
                          place.second < 0 ? -1 : sent.profile_index);
        require(answer.asked.messageId == message && meant == place,
                "request " + std::to_string(answer.asked.messageId) + " for " + textOf(meant) +
                    ", not " + std::to_string(message) + " for " + textOf(place));
        return answer.isSuccess() ? &answer : nullptr;
    }

    Entry read(const Place& place) {
        const Event* const answer = ask(RAV_WDS_GET_PROFILE_SETTINGS_REQ_V01, place);
        if (answer == nullptr) {
            return {};
        }
        const auto record = Event::as<wds_get_profile_settings_resp_msg_v01>(answer->answer);
        return {imageOf(place, record.settings, record.persistent != 0)};
    }
    void insertRead(const Place& place) {
        Entry entry = read(place);
        cache[nextToken++] = std::move(entry);
    }

    /// The image goes, and those who listen are told.
    static void drop(Entry& entry) {
        for (const auto& listener : entry.listeners) {
            listener->expected += listener->isReleased ? 0 : 1;
        }
        entry = {};
    }
    void dropAll() {
        for (auto& [token, entry] : std::exchange(cache, {})) {
            drop(entry);
        }
    }

    std::string serve(const Event& request, const std::string& response) {
        const char* const text = request.text.c_str();
        char kind[16] = "";
        char tech[8] = "";
        int id = -1;
        unsigned long long token = request.hint.token;
        const bool hasKey =
            sscanf(text, "%15s %7[^:]:%d token=%llu", kind, tech, &id, &token) == 4 ||
            sscanf(text, "Callback Release %llu", &token) == 1 || request.hint.listener;
        const std::string name = kind;
        const auto found = hasKey && !isBlocked ? cache.find(token) : cache.end();
        const bool isKnown = found != cache.end();
        const bool isReadable = isKnown && found->second.image;
        const auto outcome = [&](bool success) {
            return name + (success ? " Success" : " Failure");
        };
        if (name == "Refresh") {
            isBlocked = request.hint.isStart;
            if (!isBlocked) {
                refresh();
            }
            return "Refresh Success";
        }
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
            const auto& wanted = request.hint.filter;
            const bool fits = isReadable && (wanted ? found->second.image->match(*wanted)
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

    std::string add(TechType tech) {
        const uint64_t token = nextToken++;
        const Event* const answer = ask(RAV_WDS_CREATE_PROFILE_REQ_V01, {tech, -1});
        if (answer == nullptr) {
            return "";
        }
        const auto sent = Event::as<wds_create_profile_req_msg_v01>(answer->asked.bytes);
        const int id =
            Event::as<wds_create_profile_resp_msg_v01>(answer->answer).profile.profile_index;
        Entry& entry = cache[token];
        entry = {imageOf({tech, id}, sent.settings, sent.persistent != 0), true};
        entry.image->incRefCount();
        pending.push_back(entry.name() + " Create");
        if (!isSeeded("forgottenRule")) {
            pending.push_back(entry.name() + " Modify");
        }
        return entry.name() + " token=" + std::to_string(token);
    }

    /// Only what differs is sent, and nothing if nothing does.
    void modify(Entry& entry) {
        if (next == end || next->what != Event::What::Answer || next->isRegistration()) {
            return;
        }
        const Place place(entry.image->getTechType(), entry.image->getProfileId());
        if (const Event* const answer = ask(RAV_WDS_MODIFY_PROFILE_SETTINGS_REQ_V01, place)) {
            const auto sent =
                Event::as<wds_modify_profile_settings_req_msg_v01>(answer->asked.bytes);
            entry.image->apply(imageOf(place, sent.settings));
            pending.push_back(entry.name() + " Modify");
        }
    }

    bool remove(Entries::iterator place, const Place& where) {
        if (ask(RAV_WDS_DELETE_PROFILE_REQ_V01, where) == nullptr) {
            return false;
        }
        if (place->second.image) {
            pending.push_back(place->second.name() + " Delete");
        }
        drop(place->second);
        cache.erase(place);
        return true;
    }

    void release(Entries::iterator place) {
        const Entry& entry = place->second;
        if (entry.image->getRefCount() >= 2) {
            entry.image->decRefCount();
        } else if (entry.isOurs && !entry.image->getIsPersistent()) {
            remove(place, {entry.image->getTechType(), entry.image->getProfileId()});
        }
    }

    /// Of a policy's filter the model knows the response only.
    std::string filter(const Hint& hint, const std::string& response) {
        std::string text = "Filter Success ";
        for (const auto& [token, entry] : cache) {
            const std::string key =
                (entry.image ? entry.name() : "") + " token=" + std::to_string(token) + ",";
            if (entry.image && (hint.filter ? entry.image->match(*hint.filter)
                                            : response.find(key) != std::string::npos)) {
                entry.image->incRefCount();
                text += key;
            }
        }
        return text;
    }

    void refresh() {
        dropAll();
        for (const TechType tech : {TechType::Tech3gpp, TechType::Tech3gpp2}) {
            const Event* const answer = ask(RAV_WDS_GET_PROFILE_LIST_REQ_V01, {tech, -1});
            if (answer == nullptr) {
                return;
            }
            const auto list = Event::as<wds_get_profile_list_resp_msg_v01>(answer->answer);
            const auto count = std::min<uint32_t>(list.profile_list_len, WDS_PROFILE_LIST_MAX_V01);
            for (uint32_t i = 0; i < count; ++i) {
                const auto& info = list.profile_list[i];
                insertRead({convertProfileType(info.profile_type), info.profile_index});
            }
        }
    }

    void indicate(const std::string& text) {
        const auto expected = std::find(pending.begin(), pending.end(), text);
        if (expected != pending.end()) {
            pending.erase(expected);
            return;
        }
        const std::string event = text.substr(text.find(' ') + 1);
        const Place place(techOf(text), std::stoi(text.substr(text.find(':') + 1)));
        if (event == "Create") {
            insertRead(place);
            return;
        }
        if (event != "Delete" && event != "Modify") {
            refresh();
            return;
        }
        for (auto one = cache.begin(); one != cache.end();) {
            const bool isMeant = one->second.image && one->second.name() == textOf(place);
            if (isMeant) {
                Entry fresh = event == "Modify" ? read(place) : Entry();
                drop(one->second);
                one->second = std::move(fresh);
            }
            one = isMeant && event == "Delete" ? cache.erase(one) : std::next(one);
        }
    }

    Entries cache;
    bool isBlocked = false;
    std::vector<Event>::const_iterator next{}, end{};
};

}  // namespace kiv::test

#endif
