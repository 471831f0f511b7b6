#ifndef TESTS_EMULATOR_MODEMTEST_H
#define TESTS_EMULATOR_MODEMTEST_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "EmulatedModem.h"

namespace kiv::emulator {

using test::kPatience;
using test::modem;
using test::settings3gpp;

constexpr unsigned kTimeout = 30000;
constexpr auto k3gpp = WDS_PROFILE_TYPE_3GPP_V01;
constexpr auto k3gpp2 = WDS_PROFILE_TYPE_3GPP2_V01;
constexpr auto kAll = WDS_PROFILE_TYPE_ALL_V01;

inline rav_service_object_type service() { return wds_get_service_object_internal_v01(1, 241, 6); }

/// What callbacks told, one line each.
class Events {
public:
    void add(const std::string& line) {
        std::lock_guard lock(mutex);
        lines.push_back(line);
        added.notify_all();
    }
    std::vector<std::string> all() const {
        std::lock_guard lock(mutex);
        return lines;
    }
    /// Waits for good: the time-out of the test program judges.
    void waitForCount(size_t count) {
        std::unique_lock lock(mutex);
        added.wait(lock, [&] { return lines.size() >= count; });
    }

private:
    mutable std::mutex mutex;
    std::condition_variable added;
    std::vector<std::string> lines;
};

inline wds_create_profile_req_msg_v01 describeCreate(wds_profile_type_enum_v01 type) {
    wds_create_profile_req_msg_v01 request{};
    request.profile_type = type;
    return request;
}

/// A client of the modem that notes its callbacks. Released at the latest with it.
class TestClient {
public:
    TestClient() {
        rav_service_info info{};
        EXPECT_EQ(rav_client_get_any_service(service(), &info), RAV_CLIENT_OK);
        EXPECT_EQ(init(info), RAV_CLIENT_OK);
        EXPECT_EQ(rav_client_register_error_cb(handle, onError, this), RAV_CLIENT_OK);
    }
    ~TestClient() { release(); }

    int init(const rav_service_info& info) {
        return rav_client_init(&info, service(), onIndication, this, &parameters, &handle);
    }
    int release() { return rav_client_release(handle); }

    template <class Response, class Request>
    int send(unsigned id, const Request& request, Response& response, unsigned timeout = kTimeout) {
        return rav_client_send_msg_sync(handle, id, &request, sizeof(request), &response,
                                        sizeof(response), timeout);
    }

    /// Sends a request that must arrive, and returns the answer's error code.
    template <class Response, class Request>
    uint32_t ask(unsigned id, const Request& request, Response& response) {
        EXPECT_EQ(send(id, request, response), RAV_CLIENT_OK);
        EXPECT_EQ(response.resp.result == WDS_RESULT_SUCCESS_V01,
                  response.resp.error == WDS_ERR_NONE_V01);
        return response.resp.error;
    }

    int sendCreate(wds_profile_type_enum_v01 type, unsigned timeout = kTimeout) {
        return send(RAV_WDS_CREATE_PROFILE_REQ_V01, describeCreate(type), created, timeout);
    }
    uint32_t create(const wds_create_profile_req_msg_v01& request) {
        return ask(RAV_WDS_CREATE_PROFILE_REQ_V01, request, created);
    }
    uint32_t create(wds_profile_type_enum_v01 type) { return create(describeCreate(type)); }

    void bindAndRegister() {
        wds_common_resp_msg_v01 response;
        const wds_bind_subscription_req_msg_v01 bind{1};
        ask(RAV_WDS_BIND_SUBSCRIPTION_REQ_V01, bind, response);
        wds_indication_register_req_msg_v01 indications{};
        indications.report_profile_changes_valid = indications.report_profile_changes = 1;
        ask(RAV_WDS_INDICATION_REGISTER_REQ_V01, indications, response);
    }
    /// Reports the changes of what is wanted; of everything if nothing is listed.
    uint32_t configureEvents(const std::vector<wds_profile_identifier_type_v01>& wanted) {
        wds_configure_profile_event_list_req_msg_v01 request{};
        request.profile_event_valid = !wanted.empty();
        request.profile_event_len = static_cast<uint32_t>(wanted.size());
        std::copy(wanted.begin(), wanted.end(), request.profile_event);
        request.report_all_changes_valid = request.report_all_changes = wanted.empty();
        wds_common_resp_msg_v01 response;
        return ask(RAV_WDS_CONFIGURE_PROFILE_EVENT_LIST_REQ_V01, request, response);
    }
    void registerForEverything() {
        bindAndRegister();
        configureEvents({{kAll, 255}});
    }

    rav_client_type handle = nullptr;
    wds_create_profile_resp_msg_v01 created{};
    Events events;
    std::function<void()> onEachIndication = [] {};

private:
    static void onIndication(rav_client_type client, unsigned id, void* bytes, unsigned length,
                             void* data) {
        auto* const self = static_cast<TestClient*>(data);
        static const char* const kChanges[] = {"?", "created", "deleted", "modified"};
        wds_profile_changed_ind_msg_v01 message{};
        EXPECT_EQ(rav_client_message_decode(client, RAV_MESSAGE_INDICATION, id, bytes, length,
                                            &message, sizeof(message)),
                  RAV_CLIENT_OK);
        const auto& change = message.profile_changed;
        const std::string line = (change.profile_type == k3gpp ? "3gpp " : "3gpp2 ") +
                                 std::to_string(change.profile_index) + " " +
                                 kChanges[change.change % 4];
        self->events.add(line);
        self->onEachIndication();
    }
    static void onError(rav_client_type, int error, void* data) {
        EXPECT_EQ(error, RAV_CLIENT_ERR_SERVICE_GONE);
        static_cast<TestClient*>(data)->events.add("gone");
    }

    rav_client_os_params parameters{};
};

/// Starts every test with a modem as it leaves the factory, powered on.
class ModemTest : public testing::Test {
protected:
    ModemTest() {
        modem().stop();
        modem().factoryReset();
        modem().start();
    }
    ~ModemTest() override { EXPECT_EQ(modem().openClients(), 0U); }
};

}  // namespace kiv::emulator

#endif
