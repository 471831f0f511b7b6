#include "Faults.h"

#include <algorithm>
#include <iterator>

#include "Settings.h"

namespace kiv::emulator {
namespace {

void combine(Fault& whole, const Fault& part) {
    whole.delay += part.delay;
    if (!whole.transportResult) {
        whole.transportResult = part.transportResult;
    }
    if (!whole.error) {
        whole.error = part.error;
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

constexpr char kFiller = 'A';
constexpr int32_t kUnknownValue = 0x4D4D4D4D;
constexpr auto kUnknownType = static_cast<wds_profile_type_enum_v01>(kUnknownValue);

/// 3GPP counts from 1, 3GPP2 up to 254.
uint8_t impossibleIndex(wds_profile_type_enum_v01 type) {
    return type == WDS_PROFILE_TYPE_3GPP_V01 ? 0 : 255;
}

void lieAboutProfile(Lie lie, wds_create_profile_resp_msg_v01& answer) {
    if (lie == Lie::IndexOutOfRange) {
        answer.profile.profile_index = impossibleIndex(answer.profile.profile_type);
    } else if (lie == Lie::UnknownEnums) {
        answer.profile.profile_type = kUnknownType;
    }
}

void lieAboutSettings(Lie lie, wds_get_profile_settings_resp_msg_v01& answer) {
    const std::vector<std::byte> filling(sizeof(answer.settings.apn_name), std::byte{kFiller});
    for (const Setting& setting : allSettings()) {
        if (!setting.isPresent(answer.settings)) {
            continue;
        }
        if (lie == Lie::UnterminatedText && setting.isText) {
            setting.set(answer.settings, std::span(filling).first(setting.size));
        } else if (lie == Lie::UnknownEnums && setting.size == sizeof(kUnknownValue)) {
            setting.set(answer.settings, std::as_bytes(std::span(&kUnknownValue, 1)));
        }
    }
}

void lieAboutList(Lie lie, wds_get_profile_list_resp_msg_v01& answer) {
    const size_t count = std::min<size_t>(answer.profile_list_len, WDS_PROFILE_LIST_MAX_V01);
    if (lie == Lie::CountTooLarge) {
        answer.profile_list_len = UINT32_MAX;
    }
    for (size_t i = 0; i < count; ++i) {
        auto& entry = answer.profile_list[i];
        if (lie == Lie::UnterminatedText) {
            std::fill(std::begin(entry.profile_name), std::end(entry.profile_name), kFiller);
        } else if (lie == Lie::IndexOutOfRange) {
            entry.profile_index = impossibleIndex(entry.profile_type);
        } else if (lie == Lie::UnknownEnums) {
            entry.profile_type = kUnknownType;
        }
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
        if (!isMeant || !strikes(*one)) {
            ++one;
        } else {
            if (fault.struck) {
                ++*fault.struck;
            }
            combine(whole, fault);
            one = isRepeated(fault) ? std::next(one) : armed.erase(one);
        }
    }
    return whole;
}

void tellLie(Lie lie, unsigned messageId, std::vector<std::byte>& answer) {
    if (lie == Lie::None) {
        return;
    }
    // The service made these records in the bytes.
    if (messageId == RAV_WDS_CREATE_PROFILE_REQ_V01) {
        lieAboutProfile(lie, *reinterpret_cast<wds_create_profile_resp_msg_v01*>(answer.data()));
    } else if (messageId == RAV_WDS_GET_PROFILE_SETTINGS_REQ_V01) {
        lieAboutSettings(lie,
                         *reinterpret_cast<wds_get_profile_settings_resp_msg_v01*>(answer.data()));
    } else if (messageId == RAV_WDS_GET_PROFILE_LIST_REQ_V01) {
        lieAboutList(lie, *reinterpret_cast<wds_get_profile_list_resp_msg_v01*>(answer.data()));
    }
}

}  // namespace kiv::emulator
