// Any bytes in the modem's answers, on their way into the library's profiles and cache.

#include "FuzzInput.h"
#include "Library.h"

using namespace kiv::fuzz;

namespace {

/// Puts bytes somewhere into the nth answer of a kind from now on.
struct Rewrite {
    unsigned messageId;
    unsigned nth;
    size_t place;
    std::vector<std::byte> bytes;
};

void useRewrites(std::vector<Rewrite> rewrites) {
    modem().setHook(
        [rewrites](const kiv::emulator::Request& request, void* answer, size_t length) mutable {
            for (Rewrite& one : rewrites) {
                if (request.messageId != one.messageId || !answer || one.nth-- != 1) {
                    continue;
                }
                const size_t start = one.place % length;
                std::copy_n(one.bytes.begin(), std::min(one.bytes.size(), length - start),
                            static_cast<std::byte*>(answer) + start);
            }
        });
}

void useProfiles(kiv::Manager& manager) {
    kiv::ModifyProfileParams change;
    change.setUserName("other");
    change.setHomeIPType(kiv::IPType::V6);
    for (const auto& key : manager.filter({})) {
        if (const auto params = manager.getProfile(key)) {
            manager.match(kiv::FilterProfileParams(*params), key);
            manager.modifyProfile(change, key);
        }
    }
    require(!manager.dump().empty());
}

}  // namespace

// A rewrite is a byte for the kind and which of them, where it begins, and its bytes, counted.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr unsigned kMessages[] = {
        RAV_WDS_GET_PROFILE_SETTINGS_REQ_V01, RAV_WDS_GET_PROFILE_LIST_REQ_V01,
        RAV_WDS_MODIFY_PROFILE_SETTINGS_REQ_V01, RAV_WDS_GET_PROFILE_SETTINGS_REQ_V01};
    kiv::Manager& manager = library();
    FuzzInput input(data, size);
    std::vector<Rewrite> rewrites;
    while (rewrites.size() < 16 && !input.empty()) {
        const uint8_t head = input.takeByte();
        const size_t place = input.takeByte() * (head & 0x80 ? size_t{14} : size_t{1});
        rewrites.push_back({kMessages[head % 4], 1U + (head >> 2) % 4, place, input.takeCounted()});
    }
    useRewrites(std::move(rewrites));
    manager.refresh(kiv::PDCRefreshStatus::Complete);
    useProfiles(manager);
    modem().setHook(nullptr);
    manager.refresh(kiv::PDCRefreshStatus::Complete);
    require(manager.filter({}).size() == 3);
    return 0;
}
