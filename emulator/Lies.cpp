#include "Lies.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "Settings.h"

namespace kiv::emulator {
namespace {

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

template <class Answer>
void change(Lie lie, std::vector<std::byte>& bytes, void (*tell)(Lie, Answer&)) {
    Answer answer;
    std::memcpy(&answer, bytes.data(), sizeof(answer));
    tell(lie, answer);
    std::memcpy(bytes.data(), &answer, sizeof(answer));
}

}  // namespace

void tellLie(Lie lie, unsigned messageId, std::vector<std::byte>& answer) {
    if (lie == Lie::None) {
        return;
    }
    if (messageId == RAV_WDS_CREATE_PROFILE_REQ_V01) {
        change(lie, answer, lieAboutProfile);
    } else if (messageId == RAV_WDS_GET_PROFILE_SETTINGS_REQ_V01) {
        change(lie, answer, lieAboutSettings);
    } else if (messageId == RAV_WDS_GET_PROFILE_LIST_REQ_V01) {
        change(lie, answer, lieAboutList);
    }
}

}  // namespace kiv::emulator
