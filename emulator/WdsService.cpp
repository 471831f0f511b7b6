#include "WdsService.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>

#include "Settings.h"
#include "StateFile.h"

namespace kiv::emulator {
namespace {

constexpr uint32_t kAllIndexes = 255;

/// An empty APN name leaves the choice to the network.
constexpr char kAsShipped[] = R"({"format": "kivr modem state", "version": 1, "tables": {
    "3gpp": {"capacity": 255, "profiles": [
        {"index": 1, "persistent": true, "settings": {
            "apn_type_mask": 1, "profile_name": "default", "apn_name": "", "pdp_type": 3}},
        {"index": 2, "persistent": true, "settings": {
            "apn_type_mask": 2, "profile_name": "ims", "apn_name": "ims", "pdp_type": 3,
            "apn_class": 1}}]},
    "3gpp2": {"capacity": 255, "profiles": [
        {"index": 0, "persistent": true, "settings": {
            "apn_type_mask": 1, "apn_string_3gpp2": "", "pdn_type_3gpp2": 2}}]}}})";

uint32_t errorOf(const ProfileTable* table, const Settings& settings) {
    if (!table) {
        return WDS_ERR_INVALID_PROFILE_TYPE_V01;
    }
    return areTextsTerminated(table->technology(), settings) ? WDS_ERR_NONE_V01
                                                             : WDS_ERR_MALFORMED_MESSAGE_V01;
}

bool isEventType(wds_profile_type_enum_v01 type) {
    return type == WDS_PROFILE_TYPE_3GPP_V01 || type == WDS_PROFILE_TYPE_3GPP2_V01 ||
           type == WDS_PROFILE_TYPE_ALL_V01;
}

}  // namespace

std::optional<uint8_t> ProfileTable::create(const wds_profile_settings_type_v01& settings,
                                            bool persistent) {
    if (profiles.size() >= capacity) {
        return std::nullopt;
    }
    auto index = static_cast<uint8_t>(firstIndex());
    for (auto taken = profiles.begin(); taken != profiles.end() && taken->first == index; ++taken) {
        ++index;
    }
    insert(index, settings, persistent);
    return index;
}

bool ProfileTable::insert(uint8_t index, const wds_profile_settings_type_v01& settings,
                          bool persistent) {
    if (profiles.size() >= capacity || index < firstIndex() || index > lastIndex()) {
        return false;
    }
    const auto [place, isNew] = profiles.try_emplace(index, Profile{type, index, persistent, {}});
    if (isNew) {
        mergeSettings(type, settings, place->second.settings);
    }
    return isNew;
}

bool ProfileTable::modify(uint8_t index, const wds_profile_settings_type_v01& settings) {
    const auto found = profiles.find(index);
    if (found == profiles.end()) {
        return false;
    }
    mergeSettings(type, settings, found->second.settings);
    return true;
}

bool ProfileTable::setCapacity(unsigned number) {
    if (number > kMostProfiles) {
        return false;
    }
    capacity = number;
    return true;
}

void ProfileTable::dropTransient() {
    std::erase_if(profiles, [](const auto& entry) { return !entry.second.persistent; });
}

ProfileTable* ProfileTables::find(wds_profile_type_enum_v01 type) {
    if (type == WDS_PROFILE_TYPE_3GPP_V01) {
        return &table3gpp;
    }
    return type == WDS_PROFILE_TYPE_3GPP2_V01 ? &table3gpp2 : nullptr;
}

const Profile* ProfileTables::find(wds_profile_type_enum_v01 type, uint8_t index) {
    const ProfileTable* const table = find(type);
    return table && table->all().contains(index) ? &table->all().at(index) : nullptr;
}

bool Session::isReported(const wds_profile_changed_ind_type_v01& change) const {
    return reportsChanges && events &&
           std::any_of(events->begin(), events->end(), [&](const auto& event) {
               return (event.profile_type == WDS_PROFILE_TYPE_ALL_V01 ||
                       event.profile_type == change.profile_type) &&
                      (event.profile_index == kAllIndexes ||
                       event.profile_index == change.profile_index);
           });
}

namespace {

// Each carries out one request: fills in the response and returns the error code.

uint32_t handle(WdsService&, Session& session, const wds_bind_subscription_req_msg_v01& request,
                wds_common_resp_msg_v01&) {
    session.subscription = request.subscription;
    return WDS_ERR_NONE_V01;
}

uint32_t handle(WdsService&, Session& session, const wds_indication_register_req_msg_v01& request,
                wds_common_resp_msg_v01&) {
    if (request.report_profile_changes_valid) {
        session.reportsChanges = request.report_profile_changes != 0;
    }
    return WDS_ERR_NONE_V01;
}

uint32_t handle(WdsService&, Session& session,
                const wds_configure_profile_event_list_req_msg_v01& request,
                wds_common_resp_msg_v01&) {
    // A list names the profiles; only where there is none does the flag speak for all of them.
    if (!request.profile_event_valid) {
        if (request.report_all_changes_valid) {
            session.events.emplace();
            if (request.report_all_changes) {
                session.events->push_back({WDS_PROFILE_TYPE_ALL_V01, kAllIndexes});
            }
        }
        return WDS_ERR_NONE_V01;
    }
    if (request.profile_event_len > WDS_PROFILE_LIST_MAX_V01) {
        return WDS_ERR_MALFORMED_MESSAGE_V01;
    }
    const auto* const first = request.profile_event;
    const auto* const last = first + request.profile_event_len;
    if (!std::all_of(first, last, [](const auto& e) { return isEventType(e.profile_type); })) {
        return WDS_ERR_INVALID_PROFILE_TYPE_V01;
    }
    session.events.emplace(first, last);
    return WDS_ERR_NONE_V01;
}

uint32_t handle(WdsService& service, Session&, const wds_create_profile_req_msg_v01& request,
                wds_create_profile_resp_msg_v01& response) {
    // A modem keeps what it isn't told to forget.
    const bool persistent = !request.persistent_valid || request.persistent != 0;
    uint8_t index = 0;
    const uint32_t error =
        service.createProfile(request.profile_type, request.settings, persistent, index);
    if (error == WDS_ERR_NONE_V01) {
        // One by one: what lies between them stays zero.
        response.profile.profile_type = request.profile_type;
        response.profile.profile_index = index;
    }
    return error;
}

uint32_t handle(WdsService& service, Session&,
                const wds_modify_profile_settings_req_msg_v01& request,
                wds_modify_profile_settings_resp_msg_v01&) {
    return service.modifyProfile(request.profile.profile_type, request.profile.profile_index,
                                 request.settings);
}

uint32_t handle(WdsService& service, Session&, const wds_delete_profile_req_msg_v01& request,
                wds_delete_profile_resp_msg_v01&) {
    return service.deleteProfile(request.profile.profile_type, request.profile.profile_index);
}

uint32_t handle(WdsService& service, Session&, const wds_get_profile_settings_req_msg_v01& request,
                wds_get_profile_settings_resp_msg_v01& response) {
    const auto& [type, index] = request.profile;
    const Profile* const profile = service.tables.find(type, index);
    if (!profile) {
        return service.tables.find(type) ? WDS_ERR_UNKNOWN_PROFILE_V01
                                         : WDS_ERR_INVALID_PROFILE_TYPE_V01;
    }
    response.persistent_valid = 1;
    response.persistent = profile->persistent;
    response.settings = profile->settings;
    return WDS_ERR_NONE_V01;
}

uint32_t handle(WdsService& service, Session&, const wds_get_profile_list_req_msg_v01& request,
                wds_get_profile_list_resp_msg_v01& response) {
    // Without a type the 3GPP profiles are meant.
    const ProfileTable* const table = service.tables.find(
        request.profile_type_valid ? request.profile_type : WDS_PROFILE_TYPE_3GPP_V01);
    if (!table) {
        return WDS_ERR_INVALID_PROFILE_TYPE_V01;
    }
    for (const auto& [index, profile] : table->all()) {
        auto& entry = response.profile_list[response.profile_list_len++];
        entry.profile_type = profile.type;
        entry.profile_index = index;
        std::copy(std::begin(profile.settings.profile_name),
                  std::end(profile.settings.profile_name), entry.profile_name);
    }
    return WDS_ERR_NONE_V01;
}

template <class Request, class Response>
std::vector<std::byte> handleBytes(WdsService& service, Session& session, const std::byte* bytes) {
    Request request;
    std::memcpy(&request, bytes, sizeof(request));
    // Bytes hold any record of the interface; they are made here, already all zero.
    std::vector<std::byte> answer(sizeof(Response));
    auto& response = *reinterpret_cast<Response*>(answer.data());
    const uint32_t error = handle(service, session, request, response);
    response.resp.result =
        error == WDS_ERR_NONE_V01 ? WDS_RESULT_SUCCESS_V01 : WDS_RESULT_FAILURE_V01;
    response.resp.error = error;
    return answer;
}

template <class Request, class Response>
constexpr Message describe(unsigned id, const char* name) {
    return {id, name, sizeof(Request), sizeof(Response), &handleBytes<Request, Response>};
}

/// Each request once, with its records, and so with its handler.
constexpr Message kMessages[] = {
    describe<wds_bind_subscription_req_msg_v01, wds_common_resp_msg_v01>(
        RAV_WDS_BIND_SUBSCRIPTION_REQ_V01, "bind"),
    describe<wds_indication_register_req_msg_v01, wds_common_resp_msg_v01>(
        RAV_WDS_INDICATION_REGISTER_REQ_V01, "registerIndications"),
    describe<wds_configure_profile_event_list_req_msg_v01, wds_common_resp_msg_v01>(
        RAV_WDS_CONFIGURE_PROFILE_EVENT_LIST_REQ_V01, "configureEvents"),
    describe<wds_create_profile_req_msg_v01, wds_create_profile_resp_msg_v01>(
        RAV_WDS_CREATE_PROFILE_REQ_V01, "create"),
    describe<wds_modify_profile_settings_req_msg_v01, wds_modify_profile_settings_resp_msg_v01>(
        RAV_WDS_MODIFY_PROFILE_SETTINGS_REQ_V01, "modify"),
    describe<wds_delete_profile_req_msg_v01, wds_delete_profile_resp_msg_v01>(
        RAV_WDS_DELETE_PROFILE_REQ_V01, "delete"),
    describe<wds_get_profile_list_req_msg_v01, wds_get_profile_list_resp_msg_v01>(
        RAV_WDS_GET_PROFILE_LIST_REQ_V01, "list"),
    describe<wds_get_profile_settings_req_msg_v01, wds_get_profile_settings_resp_msg_v01>(
        RAV_WDS_GET_PROFILE_SETTINGS_REQ_V01, "get"),
};

}  // namespace

std::span<const Message> allMessages() { return kMessages; }

const Message* findMessage(unsigned id) {
    const auto* const found = std::find_if(std::begin(kMessages), std::end(kMessages),
                                           [id](const Message& one) { return one.id == id; });
    return found == std::end(kMessages) ? nullptr : found;
}

const char* messageName(unsigned id) {
    const Message* const message = findMessage(id);
    const char* const other = id == RAV_WDS_PROFILE_CHANGED_IND_V01 ? "profileChanged" : "unknown";
    return message ? message->name : other;
}

std::vector<std::byte> refuseRequest(unsigned messageId, uint32_t error) {
    std::vector<std::byte> answer(findMessage(messageId)->responseLength);
    const wds_response_type_v01 head{WDS_RESULT_FAILURE_V01, error};
    std::memcpy(answer.data(), &head, sizeof(head));
    return answer;
}

std::vector<std::byte> WdsService::handleRequest(Session& session, unsigned messageId,
                                                 const std::vector<std::byte>& request) {
    return findMessage(messageId)->handle(*this, session, request.data());
}

uint32_t WdsService::createProfile(wds_profile_type_enum_v01 type, const Settings& settings,
                                   bool persistent, uint8_t& index) {
    ProfileTable* const table = tables.find(type);
    if (const uint32_t error = errorOf(table, settings); error != WDS_ERR_NONE_V01) {
        return error;
    }
    const auto created = table->create(settings, persistent);
    if (!created) {
        return WDS_ERR_PROFILE_TABLE_FULL_V01;
    }
    index = *created;
    changes.push_back({type, index, WDS_PROFILE_CHANGE_CREATED_V01});
    changes.push_back({type, index, WDS_PROFILE_CHANGE_MODIFIED_V01});
    return WDS_ERR_NONE_V01;
}

uint32_t WdsService::modifyProfile(wds_profile_type_enum_v01 type, uint8_t index,
                                   const Settings& settings) {
    ProfileTable* const table = tables.find(type);
    if (const uint32_t error = errorOf(table, settings); error != WDS_ERR_NONE_V01) {
        return error;
    }
    if (!table->modify(index, settings)) {
        return WDS_ERR_UNKNOWN_PROFILE_V01;
    }
    changes.push_back({type, index, WDS_PROFILE_CHANGE_MODIFIED_V01});
    return WDS_ERR_NONE_V01;
}

uint32_t WdsService::deleteProfile(wds_profile_type_enum_v01 type, uint8_t index) {
    ProfileTable* const table = tables.find(type);
    if (!table) {
        return WDS_ERR_INVALID_PROFILE_TYPE_V01;
    }
    if (!table->remove(index)) {
        return WDS_ERR_UNKNOWN_PROFILE_V01;
    }
    changes.push_back({type, index, WDS_PROFILE_CHANGE_DELETED_V01});
    return WDS_ERR_NONE_V01;
}

void WdsService::dropTransientProfiles() {
    tables.table3gpp.dropTransient();
    tables.table3gpp2.dropTransient();
}

void WdsService::installFactoryProfiles() {
    static const ProfileTables shipped = parseState("profiles as shipped", kAsShipped);
    for (const ProfileTable* from : {&shipped.table3gpp, &shipped.table3gpp2}) {
        ProfileTable& to = *tables.find(from->technology());
        const bool wasEmpty = to.all().empty();
        for (const auto& [index, profile] : from->all()) {
            if (wasEmpty) {
                to.create(profile.settings, profile.persistent);
            }
        }
    }
}

void WdsService::refreshConfiguration() {
    tables.table3gpp.clear();
    tables.table3gpp2.clear();
    installFactoryProfiles();
}

void WdsService::reset() {
    tables = {};
    changes.clear();
}

std::vector<wds_profile_changed_ind_type_v01> WdsService::takeChanges() {
    return std::exchange(changes, {});
}

}  // namespace kiv::emulator
