#include "FaultList.h"

#include <algorithm>
#include <utility>

namespace kiv::emulator {
namespace {

void combine(Fault& whole, Fault part) {
    whole.delay += part.delay;
    if (!whole.transportResult) {
        whole.transportResult = part.transportResult;
    }
    if (!whole.error) {
        whole.error = part.error;
    }
    if (whole.rewrite && part.rewrite) {
        whole.rewrite = [first = std::move(whole.rewrite), second = std::move(part.rewrite)](
                            void* response, size_t length) {
            first(response, length);
            second(response, length);
        };
    } else if (part.rewrite) {
        whole.rewrite = std::move(part.rewrite);
    }
}

}  // namespace

void FaultList::add(Fault fault) {
    constexpr std::chrono::milliseconds kLongest = std::chrono::hours(24);
    fault.delay = std::clamp(fault.delay, std::chrono::milliseconds(0), kLongest);
    fault.nth = std::max(fault.nth, 1U);
    if (fault.transportResult == RAV_CLIENT_OK) {
        fault.transportResult.reset();  // that is no failure
    }
    armed.push_back(std::move(fault));
}

Fault FaultList::strike(unsigned messageId) {
    Fault whole;
    whole.messageId = messageId;
    for (auto fault = armed.begin(); fault != armed.end();) {
        if (fault->messageId == messageId && --fault->nth == 0) {
            combine(whole, std::move(*fault));
            fault = armed.erase(fault);
        } else {
            ++fault;
        }
    }
    return whole;
}

}  // namespace kiv::emulator
