// What a request costs on the emulated modem:
//   request/KIND  as a client sends it, to the modem's thread and back, on the virtual clock
//   switches      two thread switches and nothing else, in the same process
// The emulator's own time is the first less the second, in the column CPU, which counts all threads
// and hardly depends on what else the machine does.

#include <benchmark/benchmark.h>

#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "ModemEmulator.h"
#include "WdsService.h"

namespace kiv::emulator {
namespace {

constexpr auto k3gpp = WDS_PROFILE_TYPE_3GPP_V01;
constexpr unsigned kLoggedRequests = 16384;

struct Message {
    unsigned id;
    std::vector<std::byte> request;
    size_t responseLength;
};

template <class Request>
Message describe(unsigned id, const Request& request) {
    const auto* const first = reinterpret_cast<const std::byte*>(&request);
    return {id, {first, first + sizeof(request)}, findMessage(id)->responseLength};
}

wds_profile_settings_type_v01 settings() {
    wds_profile_settings_type_v01 settings{};
    settings.apn_name_valid = settings.user_name_valid = settings.pdp_type_valid = 1;
    std::strcpy(settings.apn_name, "internet");
    std::strcpy(settings.user_name, "user");
    settings.pdp_type = WDS_PDP_TYPE_IPV4V6_V01;
    return settings;
}

/// One kind of request, or for a create the delete that undoes it as well.
struct Kind {
    const char* name;
    std::vector<Message> messages;
};

std::vector<Kind> kinds() {
    wds_indication_register_req_msg_v01 registration{};
    wds_configure_profile_event_list_req_msg_v01 events{};
    wds_create_profile_req_msg_v01 create{};
    create.profile_type = k3gpp;
    create.settings = settings();
    wds_modify_profile_settings_req_msg_v01 modify{};
    modify.profile = {k3gpp, 1};
    modify.settings = settings();
    const wds_delete_profile_req_msg_v01 remove{{k3gpp, 3}};
    const wds_get_profile_settings_req_msg_v01 get{{k3gpp, 1}};
    wds_get_profile_list_req_msg_v01 list{};
    return {
        {"bind",
         {describe(RAV_WDS_BIND_SUBSCRIPTION_REQ_V01, wds_bind_subscription_req_msg_v01{0})}},
        {"register", {describe(RAV_WDS_INDICATION_REGISTER_REQ_V01, registration)}},
        {"configure", {describe(RAV_WDS_CONFIGURE_PROFILE_EVENT_LIST_REQ_V01, events)}},
        {"create+delete",
         {describe(RAV_WDS_CREATE_PROFILE_REQ_V01, create),
          describe(RAV_WDS_DELETE_PROFILE_REQ_V01, remove)}},
        {"modify", {describe(RAV_WDS_MODIFY_PROFILE_SETTINGS_REQ_V01, modify)}},
        {"get", {describe(RAV_WDS_GET_PROFILE_SETTINGS_REQ_V01, get)}},
        {"list", {describe(RAV_WDS_GET_PROFILE_LIST_REQ_V01, list)}},
    };
}

void requireSuccess(benchmark::State& state, const std::byte* response) {
    wds_response_type_v01 head;
    std::memcpy(&head, response, sizeof(head));
    if (head.result != WDS_RESULT_SUCCESS_V01) {
        state.SkipWithError(("refused with error " + std::to_string(head.error)).c_str());
    }
}

void measureRequest(benchmark::State& state, const Kind& kind) {
    ModemEmulator& modem = ModemEmulator::getInstance();
    modem.stop();
    modem.useVirtualClock(true);
    modem.factoryReset();
    modem.installFactoryProfiles();
    modem.start();
    const auto service = wds_get_service_object_internal_v01(1, 241, 6);
    rav_client_os_params parameters{};
    rav_service_info info{};
    rav_client_type client = nullptr;
    if (rav_client_get_any_service(service, &info) != RAV_CLIENT_OK ||
        rav_client_init(&info, service, nullptr, nullptr, &parameters, &client) != RAV_CLIENT_OK) {
        state.SkipWithError("no client");
        return;
    }
    std::vector<std::byte> response(sizeof(wds_get_profile_list_resp_msg_v01));
    const auto send = [&] {
        for (const auto& [id, request, length] : kind.messages) {
            const int sent = rav_client_send_msg_sync(
                client, id, request.data(), static_cast<unsigned>(request.size()), response.data(),
                static_cast<unsigned>(length), 10000);
            if (sent != RAV_CLIENT_OK) {
                state.SkipWithError("not sent");
            }
            requireSuccess(state, response.data());
        }
    };
    // Until the modem's log is full, as it soon is in a simulation, fresh memory is what costs.
    for (unsigned i = 0; i < kLoggedRequests; ++i) {
        send();
    }
    for (auto _ : state) {
        send();
    }
    rav_client_release(client);
}

/// There and back, in the cheapest way: nobody is woken who then waits for the lock.
void measureSwitches(benchmark::State& state) {
    enum class Turn { Here, There, Over };
    std::mutex mutex;
    std::condition_variable toThere, toHere;
    Turn turn = Turn::Here;
    std::thread there([&] {
        std::unique_lock lock(mutex);
        for (;;) {
            toThere.wait(lock, [&] { return turn != Turn::Here; });
            if (turn == Turn::Over) {
                return;
            }
            turn = Turn::Here;
            lock.unlock();
            toHere.notify_one();
            lock.lock();
        }
    });
    for (auto _ : state) {
        std::unique_lock lock(mutex);
        turn = Turn::There;
        lock.unlock();
        toThere.notify_one();
        lock.lock();
        toHere.wait(lock, [&] { return turn == Turn::Here; });
    }
    {
        std::lock_guard lock(mutex);
        turn = Turn::Over;
    }
    toThere.notify_one();
    there.join();
}

[[maybe_unused]] const bool kRegistered = [] {
    for (const Kind& kind : kinds()) {
        const std::string name = kind.name;
        benchmark::RegisterBenchmark(("request/" + name).c_str(), measureRequest, kind)
            ->MeasureProcessCPUTime()
            ->UseRealTime();
    }
    benchmark::RegisterBenchmark("switches", measureSwitches)
        ->MeasureProcessCPUTime()
        ->UseRealTime();
    return true;
}();

}  // namespace
}  // namespace kiv::emulator
