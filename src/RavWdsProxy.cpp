#include "RavWdsProxy.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <string>

#include "Conversions.h"
#include "LogWrapper.h"
#include "NoWaitScope.h"
#include "ValueText.h"

namespace kiv {

namespace {

constexpr unsigned int kRequestTimeoutMs = 1000;

/// So many indications are handled before others get their turn: each may take a refresh.
constexpr int kIndicationsPerTurn = 4;

/// The service counts its events from 1; what has no name counts as ready. Both are meant.
ProfileChangeEvent convertChangeEvent(wds_profile_change_enum_v01 change) {
    const uint32_t event = static_cast<uint32_t>(change) - 1;
    return event < 4 ? static_cast<ProfileChangeEvent>(event) : ProfileChangeEvent::ProfileReady;
}

void releaseIfOpen(rav_client_type& handle) {
    if (handle != nullptr) {
        rav_client_release(handle);
        handle = nullptr;
    }
}

/// Wakes the worker thread from a thread of the messaging library. The texts, which differ, precede
/// what write returned and the reason.
void signalOrLog(const OwnedFd& fd, const char* result, const char* reason) {
    const ssize_t written = signalEventFd(fd.get());
    if (written < static_cast<ssize_t>(sizeof(uint64_t))) {
        KIV_LOG(ERROR, "%s%d%s%s", result, static_cast<int>(written), reason, strerror(errno));
    }
}

template <class Request, class Response>
bool send(rav_client_type client, unsigned int msgId, const Request& request, Response& response) {
    const int sent = rav_client_send_msg_sync(client, msgId, &request, sizeof(request), &response,
                                              sizeof(response), kRequestTimeoutMs);
    return sent == RAV_CLIENT_OK && response.resp.result == WDS_RESULT_SUCCESS_V01;
}

template <class Request>
void sendRegistration(rav_client_type client, unsigned int msgId, const char* name,
                      const Request& request) {
    wds_common_resp_msg_v01 response{};
    if (send(client, msgId, request, response)) {
        KIV_LOG(DEBUG, "RavWdsProxy %s register request successful!", name);
    } else {
        KIV_LOG(ERROR, "Unable send %s req message", name);
    }
}

template <class Request, class Response>
bool sendProfileRequest(rav_client_type client, unsigned int msgId, const char* name,
                        const Request& request, Response& response) {
    if (!send(client, msgId, request, response)) {
        KIV_LOG(ERROR, "Unable send %s message", name);
        return false;
    }
    KIV_LOG_TEXT(EVENT, "RavWdsProxy ", name, " request successful!");
    return true;
}

}  // namespace

std::string ProfileChangedInd::dump() const {
    return valueText(techType) + ":" + std::to_string(profileId) + " " +
           nameOrNumber(static_cast<int32_t>(event),
                        {"Create", "Delete", "Modify", "SubscriptionChange", "ProfileReady"});
}

RavWdsProxy::RavWdsProxy(EventManager& eventManager, int bindValue)
    : eventManager(eventManager),
      bindValue(bindValue),
      serviceObject(wds_get_service_object_internal_v01(WDS_SERVICE_MAJOR_VERSION_V01,
                                                        WDS_SERVICE_MINOR_VERSION_V01,
                                                        WDS_SERVICE_LIBRARY_VERSION_V01)) {
    const auto watch = [this](OwnedFd& fd, EventCallback handler) {
        fd.reset(createEventFd());
        this->eventManager.addEventHandler(fd.get(), handler, this, nullptr, EPOLLIN);
    };
    watch(svcUpFd, handleSvcUp);
    watch(errorFd, handleError);
    watch(indFd, handleIndication);
    registerRavSvcUp();
    profileChangedIndCb = [](const ProfileChangedInd&) {
        KIV_LOG(DEBUG, "RavWdsProxy::no profileChangedIndCb registered!");
    };
}

RavWdsProxy::~RavWdsProxy() {
    releaseIfOpen(notifier);
    releaseIfOpen(client);
    for (const OwnedFd* fd : {&svcUpFd, &errorFd, &indFd}) {
        eventManager.removeEventHandler(fd->get());
    }
    for (OwnedFd* fd : {&svcUpFd, &errorFd, &indFd}) {
        fd->reset();
    }
}

void RavWdsProxy::readAgain() {
    indicationLost.store(true);
    eventManager.signalLater(indFd.get());
}

void RavWdsProxy::registerProfileChangedInd(std::function<void(ProfileChangedInd)> cb) {
    profileChangedIndCb.swap(cb);
}

void RavWdsProxy::registerIndicationLost(std::function<void()> cb) { indicationLostCb.swap(cb); }

// Service arrival and loss.

void RavWdsProxy::registerRavSvcUp() {
    KIV_LOG(EVENT, "RavWdsProxy::registerRavSvcUp");
    if (serviceObject == nullptr) {
        KIV_LOG(ERROR, "cannot obtain service obj, fatal error");
        return;
    }
    // The modem may report its loss twice; then there is a notifier already.
    releaseIfOpen(notifier);
    osParams = {};
    // Meant: the results of both are not looked at.
    rav_client_notifier_init(serviceObject, &osParams, &notifier);
    rav_client_register_notify_cb(notifier, ravNotifyCb, this);
}

void RavWdsProxy::ravNotifyCb(rav_client_type /*notifier*/, rav_service_object_type /*service*/,
                              rav_client_notify_event_type event, void* userData) {
    const NoWaitScope noWait;
    if (userData == nullptr) {
        KIV_LOG(ERROR, "RavWdsProxy instance is null");
        return;
    }
    if (event != RAV_CLIENT_SERVICE_APPEARED) {
        KIV_LOG(ERROR, "RavWdsProxy notify cb: unsupported service event");
        return;
    }
    signalOrLog(static_cast<RavWdsProxy*>(userData)->svcUpFd, "error in writing rv:", ", error:");
}

void RavWdsProxy::handleSvcUp(int fd, void* arg) {
    KIV_LOG(DEBUG, "RavWdsProxy service is up, trying to initialize svc client");
    drainEventFd(fd);
    if (arg == nullptr) {
        KIV_LOG(ERROR, "RavWdsProxy instance is null");
        return;
    }
    static_cast<RavWdsProxy*>(arg)->openClient();
}

void RavWdsProxy::openClient() {
    if (eventManager.isStopped()) {
        return;  // the end would have to wait for the registrations
    }
    rav_service_info info{};
    if (rav_client_get_any_service(serviceObject, &info) != RAV_CLIENT_OK) {
        KIV_LOG(ERROR, "error get service.");
        return;
    }
    releaseIfOpen(notifier);
    if (client != nullptr) {
        KIV_LOG(DEBUG, "RavWdsProxy client is already present, so skipping client initialization.");
        return;
    }
    osParams = {};
    const int opened = rav_client_init(&info, serviceObject, ravIndCb, this, &osParams, &client);
    if (opened != RAV_CLIENT_OK) {
        // Meant: nobody tries again, since the notifier is gone.
        KIV_LOG(ERROR, "rav_client_init error. ErrCode : %d", opened);
        return;
    }
    const int registered = rav_client_register_error_cb(client, ravErrorCb, this);
    KIV_LOG(DEBUG, "rav_client_register_error_cb result: %d", registered);
    registerRavIndications();
}

void RavWdsProxy::registerRavIndications() {
    wds_bind_subscription_req_msg_v01 bind{};
    bind.subscription = static_cast<uint32_t>(bindValue);
    sendRegistration(client, RAV_WDS_BIND_SUBSCRIPTION_REQ_V01, "bind", bind);

    wds_indication_register_req_msg_v01 indications{};
    indications.report_profile_changes_valid = 1;
    indications.report_profile_changes = 1;
    sendRegistration(client, RAV_WDS_INDICATION_REGISTER_REQ_V01, "indication", indications);

    wds_configure_profile_event_list_req_msg_v01 events{};
    events.profile_event_valid = 1;
    events.profile_event_len = 1;
    events.profile_event[0].profile_type = WDS_PROFILE_TYPE_ALL_V01;
    events.profile_event[0].profile_index = 255;  // every profile
    events.report_all_changes_valid = 1;
    events.report_all_changes = 1;
    sendRegistration(client, RAV_WDS_CONFIGURE_PROFILE_EVENT_LIST_REQ_V01, "config", events);
}

void RavWdsProxy::ravErrorCb(rav_client_type /*client*/, int /*error*/, void* userData) {
    const NoWaitScope noWait;
    KIV_LOG_TEXT(DEBUG, "src/RavWdsProxy:160:ravErrorCb");
    if (userData == nullptr) {
        KIV_LOG(ERROR, "RavWdsProxy NULL in ravErrorCb");
        return;
    }
    signalOrLog(static_cast<RavWdsProxy*>(userData)->errorFd, "error in writing rv: ", ", error: ");
}

void RavWdsProxy::handleError(int fd, void* arg) {
    KIV_LOG_TEXT(DEBUG, "src/RavWdsProxy:229:handleError");
    drainEventFd(fd);
    if (arg == nullptr) {
        KIV_LOG(ERROR, "arg is null");
        return;
    }
    auto* proxy = static_cast<RavWdsProxy*>(arg);
    releaseIfOpen(proxy->client);
    KIV_LOG(INFO, "Handling modem down");
    proxy->registerRavSvcUp();
}

// Indications.

void RavWdsProxy::ravIndCb(rav_client_type client, unsigned int msgId, void* indBuf,
                           unsigned int indBufLen, void* indCbData) {
    const NoWaitScope noWait;
    // Meant: the line numbers in the traces are fixed, wherever the code moves.
    KIV_LOG_TEXT(VERBOSE, __PRETTY_FUNCTION__, ":115");
    if (indBufLen == 0 || indBuf == nullptr || indCbData == nullptr) {
        KIV_LOG(ERROR, "The ind_cb_data/ind_buf is null or ind_buf_len is %d",
                static_cast<int>(indBufLen));
        return;
    }
    auto* proxy = static_cast<RavWdsProxy*>(indCbData);
    try {
        auto info = std::make_unique<IndInfo_t>(IndInfo_t{
            client, msgId, std::make_unique<unsigned char[]>(indBufLen), indBufLen, proxy});
        memcpy(info->buffer.get(), indBuf, indBufLen);
        std::lock_guard lock(proxy->indQueueMutex);
        proxy->indQueue.push_back(info.get());
        // The queue holds it from here on.
        static_cast<void>(info.release());
    } catch (const std::bad_alloc&) {
        proxy->indicationLost.store(true);
        KIV_LOG(ERROR, "RavWdsProxy: out of memory, indication is lost");
    }
    signalOrLog(proxy->indFd, "Error in writing rv: ", ", error: ");
}

void RavWdsProxy::handleIndication(int fd, void* arg) {
    drainEventFd(fd);
    if (arg == nullptr) {
        KIV_LOG(ERROR, "RavWdsProxy nullptr in handleIndication");
        return;
    }
    auto* proxy = static_cast<RavWdsProxy*>(arg);
    try {
        proxy->handleIndications();
    } catch (const std::bad_alloc&) {
        proxy->readAgain();
        throw;
    }
}

void RavWdsProxy::handleIndications() {
    if (indicationLost.load() && indicationLostCb) {
        indicationLostCb();
        eventManager.finishItem();
    }
    // The one in hand when the loop is stopped is the last.
    for (int handled = 0; handled < kIndicationsPerTurn && !eventManager.isStopped(); ++handled) {
        const std::optional<IndInfo_t*> front = takeIndication();
        if (!front) {
            return;
        }
        std::unique_ptr<IndInfo_t> info(*front);
        if (!info) {
            KIV_LOG(ERROR, "handleIndication: arg is null");
            return;
        }
        if (!handleIndInfo(*info)) {
            // Meant: what can't be decoded is not freed, and the rest waits for the next signal.
            static_cast<void>(info.release());
            return;
        }
        eventManager.finishItem();
    }
    signalOrLog(indFd, "Error in writing rv: ", ", error: ");
}

/// Takes the front record off the queue; nothing if there is none.
std::optional<RavWdsProxy::IndInfo_t*> RavWdsProxy::takeIndication() {
    std::optional<IndInfo_t*> front;
    size_t size = 0;
    {
        std::lock_guard lock(indQueueMutex);
        size = indQueue.size();
        if (size > 0) {
            front = indQueue.front();
            indQueue.pop_front();
        }
    }
    KIV_LOG(DEBUG, "RavWdsProxy: handleIndication indQueue.size[%d]", static_cast<int>(size));
    return front;
}

/// False if the record can't be decoded.
bool RavWdsProxy::handleIndInfo(const IndInfo_t& info) {
    if (info.msgId != RAV_WDS_PROFILE_CHANGED_IND_V01) {
        KIV_LOG(VERBOSE, "Unknown message ID %lu received", static_cast<unsigned long>(info.msgId));
        return true;
    }
    wds_profile_changed_ind_msg_v01 message{};
    if (rav_client_message_decode(info.client, RAV_MESSAGE_INDICATION, info.msgId,
                                  info.buffer.get(), info.length, &message,
                                  sizeof(message)) != RAV_CLIENT_OK) {
        // The text is another message's; it is used as it stands.
        KIV_LOG(ERROR, "Unable to decode the nr status ind message");
        return false;
    }
    if (message.profile_changed_valid == 0) {
        KIV_LOG(ERROR, "Profile changed ind TLV is not valid");
    } else {
        handleProfileChangedInd(message.profile_changed);
    }
    return true;
}

void RavWdsProxy::handleProfileChangedInd(wds_profile_changed_ind_type_v01 ind) {
    KIV_LOG(DEBUG, "RavWdsProxy ProfileChangedInd received!");
    profileChangedIndCb({convertProfileType(ind.profile_type),
                         static_cast<int>(ind.profile_index & 0xFF),
                         convertChangeEvent(ind.change)});
}

// Requests.

bool RavWdsProxy::add(ModemProfile& profile) {
    const wds_create_profile_req_msg_v01 request = profile.constructAddRequest();
    wds_create_profile_resp_msg_v01 response{};
    if (!sendProfileRequest(client, RAV_WDS_CREATE_PROFILE_REQ_V01,
                            "RAV_WDS_CREATE_PROFILE_REQ_V01", request, response)) {
        return false;
    }
    profile.setProfileId(response.profile.profile_index);
    return true;
}

bool RavWdsProxy::modify(ModemProfile& profile, TechType techType, int profileId) {
    wds_modify_profile_settings_req_msg_v01 request = profile.constructModifyRequest();
    request.profile = convertToProfileIdentifier(techType, profileId);
    wds_modify_profile_settings_resp_msg_v01 response{};
    return sendProfileRequest(client, RAV_WDS_MODIFY_PROFILE_SETTINGS_REQ_V01,
                              "RAV_WDS_MODIFY_PROFILE_SETTINGS_REQ_V01", request, response);
}

bool RavWdsProxy::remove(TechType techType, int profileId) {
    const wds_delete_profile_req_msg_v01 request{convertToProfileIdentifier(techType, profileId)};
    wds_delete_profile_resp_msg_v01 response{};
    return sendProfileRequest(client, RAV_WDS_DELETE_PROFILE_REQ_V01,
                              "RAV_WDS_DELETE_PROFILE_REQ_V01", request, response);
}

std::shared_ptr<ModemProfile> RavWdsProxy::get(TechType techType, int profileId) {
    const wds_get_profile_settings_req_msg_v01 request{
        convertToProfileIdentifier(techType, profileId)};
    wds_get_profile_settings_resp_msg_v01 response{};
    if (!sendProfileRequest(client, RAV_WDS_GET_PROFILE_SETTINGS_REQ_V01,
                            "RAV_WDS_GET_PROFILE_SETTINGS_REQ_V01", request, response)) {
        return nullptr;
    }
    const int index = request.profile.profile_index;
    switch (convertProfileType(request.profile.profile_type)) {
        case TechType::Tech3gpp:
            return std::make_shared<Modem3gppProfile>(index, response);
        case TechType::Tech3gpp2:
            return std::make_shared<Modem3gpp2Profile>(index, response);
    }
    KIV_LOG(ERROR, "RavWdsProxy invalid tech type!");
    return nullptr;
}

std::list<std::shared_ptr<ModemProfile>> RavWdsProxy::getAllProfiles() {
    std::list<std::shared_ptr<ModemProfile>> profiles;
    wds_get_profile_list_req_msg_v01 request{};
    request.profile_type_valid = 1;
    // Meant: one response for both requests, not cleared in between.
    wds_get_profile_list_resp_msg_v01 response{};
    for (const auto type : {WDS_PROFILE_TYPE_3GPP_V01, WDS_PROFILE_TYPE_3GPP2_V01}) {
        request.profile_type = type;
        if (eventManager.isStopped() ||
            !sendProfileRequest(client, RAV_WDS_GET_PROFILE_LIST_REQ_V01,
                                "RAV_WDS_GET_PROFILE_LIST_REQ_V01", request, response)) {
            return profiles;
        }
        // The modem's count is not to be trusted.
        const uint32_t count =
            std::min<uint32_t>(response.profile_list_len, WDS_PROFILE_LIST_MAX_V01);
        for (uint32_t i = 0; i < count && !eventManager.isStopped(); ++i) {
            const wds_profile_info_type_v01& info = response.profile_list[i];
            profiles.push_back(get(convertProfileType(info.profile_type), info.profile_index));
        }
    }
    return profiles;
}

}  // namespace kiv
