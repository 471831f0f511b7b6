// Any bytes in every request of the data service. Whatever the tables then hold can be saved.

#include "FuzzInput.h"
#include "Library.h"
#include "StateFile.h"
#include "WdsService.h"

using namespace kiv::fuzz;
using namespace kiv::emulator;

namespace {

constexpr unsigned kMessages[] = {
    RAV_WDS_BIND_SUBSCRIPTION_REQ_V01,
    RAV_WDS_INDICATION_REGISTER_REQ_V01,
    RAV_WDS_CONFIGURE_PROFILE_EVENT_LIST_REQ_V01,
    RAV_WDS_CREATE_PROFILE_REQ_V01,
    RAV_WDS_MODIFY_PROFILE_SETTINGS_REQ_V01,
    RAV_WDS_DELETE_PROFILE_REQ_V01,
    RAV_WDS_GET_PROFILE_SETTINGS_REQ_V01,
    RAV_WDS_GET_PROFILE_LIST_REQ_V01,
};

}  // namespace

// A request is a byte for its kind and its filling, where its bytes begin, and the bytes.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    WdsService service;
    Session session;
    while (!input.empty()) {
        const uint8_t head = input.takeByte();
        const unsigned id = kMessages[head % 8];
        const Message* const message = findMessage(id);
        const std::byte filling{static_cast<uint8_t>(head & 0x80 ? 0xff : 0)};
        std::vector<std::byte> request(message->requestLength, filling);
        const size_t place = (input.takeByte() * size_t{4}) % request.size();
        const auto bytes = input.takeCounted();
        std::copy_n(bytes.begin(), std::min(bytes.size(), request.size() - place),
                    request.begin() + static_cast<std::ptrdiff_t>(place));
        require(service.handleRequest(session, id, request).size() == message->responseLength);
        for (const auto& change : service.takeChanges()) {
            static_cast<void>(session.isReported(change));
        }
    }
    const std::string saved = formatState("saved", service.tables);
    require(formatState("read", parseState("saved", saved)) == saved);
    return 0;
}
