#include "WdsService.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>

#include "Settings.h"

namespace kiv::emulator {
namespace {

constexpr uint32_t kAllIndexes = 255;

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

bool Session::isReported(const wds_profile_changed_ind_type_v01& change) const {
    return reportsChanges && events &&
           std::any_of(events->begin(), events->end(), [&](const auto& event) {
               return (event.profile_type == WDS_PROFILE_TYPE_ALL_V01 ||
                       event.profile_type == change.profile_type) &&
                      (event.profile_index == kAllIndexes ||
                       event.profile_index == change.profile_index);
           });
}

/// Carries out the requests of one kind.
struct MessageHandler {
    template <class Request, class Response>
    static std::vector<std::byte> handle(WdsService& service, Session& session,
                                         const std::byte* bytes) {
        Request request;
        std::memcpy(&request, bytes, sizeof(request));
        // Bytes hold any record of the interface; they are made here, already all zero.
        std::vector<std::byte> answer(sizeof(Response));
        auto& response = *reinterpret_cast<Response*>(answer.data());
        const uint32_t error = service.handle(session, request, response);
        response.resp.result =
            error == WDS_ERR_NONE_V01 ? WDS_RESULT_SUCCESS_V01 : WDS_RESULT_FAILURE_V01;
        response.resp.error = error;
        return answer;
    }
};

namespace {

template <class Request, class Response>
constexpr Message describe(unsigned id, const char* name) {
    return {id, name, sizeof(Request), sizeof(Response),
            &MessageHandler::handle<Request, Response>};
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

uint32_t WdsService::handle(Session& session, const wds_bind_subscription_req_msg_v01& request,
                            wds_common_resp_msg_v01&) {
    session.subscription = request.subscription;
    return WDS_ERR_NONE_V01;
}

uint32_t WdsService::handle(Session& session, const wds_indication_register_req_msg_v01& request,
                            wds_common_resp_msg_v01&) {
    if (request.report_profile_changes_valid) {
        session.reportsChanges = request.report_profile_changes != 0;
    }
    return WDS_ERR_NONE_V01;
}

uint32_t WdsService::handle(Session& session,
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

uint32_t WdsService::handle(Session&, const wds_create_profile_req_msg_v01& request,
                            wds_create_profile_resp_msg_v01& response) {
    // A modem keeps what it isn't told to forget.
    const bool persistent = !request.persistent_valid || request.persistent != 0;
    uint8_t index = 0;
    const uint32_t error = createProfile(request.profile_type, request.settings, persistent, index);
    if (error == WDS_ERR_NONE_V01) {
        // One by one: what lies between them stays zero.
        response.profile.profile_type = request.profile_type;
        response.profile.profile_index = index;
    }
    return error;
}

uint32_t WdsService::handle(Session&, const wds_modify_profile_settings_req_msg_v01& request,
                            wds_modify_profile_settings_resp_msg_v01&) {
    return modifyProfile(request.profile.profile_type, request.profile.profile_index,
                         request.settings);
}

uint32_t WdsService::handle(Session&, const wds_delete_profile_req_msg_v01& request,
                            wds_delete_profile_resp_msg_v01&) {
    return deleteProfile(request.profile.profile_type, request.profile.profile_index);
}

uint32_t WdsService::handle(Session&, const wds_get_profile_settings_req_msg_v01& request,
                            wds_get_profile_settings_resp_msg_v01& response) {
    const auto& [type, index] = request.profile;
    const Profile* const profile = tables.find(type, index);
    if (!profile) {
        return tables.find(type) ? WDS_ERR_UNKNOWN_PROFILE_V01 : WDS_ERR_INVALID_PROFILE_TYPE_V01;
    }
    response.persistent_valid = 1;
    response.persistent = profile->persistent;
    response.settings = profile->settings;
    return WDS_ERR_NONE_V01;
}

uint32_t WdsService::handle(Session&, const wds_get_profile_list_req_msg_v01& request,
                            wds_get_profile_list_resp_msg_v01& response) {
    // Without a type the 3GPP profiles are meant.
    const ProfileTable* const table =
        tables.find(request.profile_type_valid ? request.profile_type : WDS_PROFILE_TYPE_3GPP_V01);
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

}  // namespace kiv::emulator
