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
    whole.drop = whole.drop || part.drop;
    whole.lie = whole.lie == Lie::None ? part.lie : whole.lie;
    whole.indications =
        whole.indications == IndicationFault::None ? part.indications : whole.indications;
    whole.order = whole.order == IndicationOrder::Default ? part.order : whole.order;
    whole.consequences.insert(whole.consequences.end(), part.consequences.begin(),
                              part.consequences.end());
}

bool isRepeated(const Fault& fault) { return fault.every > 0 || fault.probability > 0; }

}  // namespace

void FaultList::add(Fault fault) {
    constexpr std::chrono::milliseconds kLongest = std::chrono::hours(24);
    fault.delay = std::clamp(fault.delay, std::chrono::milliseconds(0), kLongest);
    fault.nth = std::max(fault.nth, 1U);
    if (fault.transportResult == RAV_CLIENT_OK) {
        fault.transportResult.reset();  // that is no failure
    }
    armed.push_back({std::move(fault)});
}

bool FaultList::strikes(Armed& one) {
    const Fault& fault = one.fault;
    if (++one.seen < fault.nth) {
        return false;
    }
    const unsigned beyond = one.seen - fault.nth;
    if (fault.every > 0 && beyond % fault.every != 0) {
        return false;
    }
    if (fault.probability > 0) {
        // The engine is the same everywhere; the library's distributions are not.
        constexpr double kStep = 1.0 / (UINT64_C(1) << 53);
        return static_cast<double>(random() >> 11) * kStep < fault.probability;
    }
    return fault.every > 0 || beyond == 0;
}

Fault FaultList::strike(unsigned messageId) {
    Fault whole;
    whole.messageId = messageId;
    for (auto one = armed.begin(); one != armed.end();) {
        const Fault& fault = one->fault;
        const bool isMeant = fault.messageId == 0 || fault.messageId == messageId;
        const bool isStruck = isMeant && strikes(*one);
        if (isStruck && fault.struck) {
            ++*fault.struck;
        }
        if (!isStruck) {
            ++one;
        } else if (isRepeated(fault)) {
            combine(whole, fault);
            ++one;
        } else {
            combine(whole, std::move(one->fault));
            one = armed.erase(one);
        }
    }
    return whole;
}

}  // namespace kiv::emulator
