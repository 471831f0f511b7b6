#include "Encoding.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

namespace kiv::emulator {
namespace {

constexpr std::byte kProfileChangedElement{0x10};
constexpr size_t kHeaderLength = 3;
constexpr std::string_view kDigits = "0123456789abcdef";

// The record lies in memory as its three numbers lie on the wire.
static_assert(std::endian::native == std::endian::little &&
              sizeof(wds_profile_changed_ind_type_v01) == 12);

}  // namespace

std::vector<std::byte> encodeChange(const wds_profile_changed_ind_type_v01& change) {
    std::vector<std::byte> bytes = {kProfileChangedElement, std::byte{sizeof(change)}, {}};
    const auto value = std::as_bytes(std::span(&change, 1));
    bytes.insert(bytes.end(), value.begin(), value.end());
    return bytes;
}

bool decodeChange(std::span<const std::byte> bytes, wds_profile_changed_ind_msg_v01& message) {
    message = {};
    while (!bytes.empty()) {
        if (bytes.size() < kHeaderLength) {
            return false;
        }
        const std::byte type = bytes[0];
        const size_t length = toNumber(bytes.subspan(1, 2));
        bytes = bytes.subspan(kHeaderLength);
        if (length > bytes.size()) {
            return false;
        }
        if (type == kProfileChangedElement) {
            if (length != sizeof(message.profile_changed)) {
                return false;
            }
            std::memcpy(&message.profile_changed, bytes.data(), length);
            message.profile_changed_valid = 1;
        }
        bytes = bytes.subspan(length);
    }
    return true;
}

uint64_t toNumber(std::span<const std::byte> bytes) {
    uint64_t value = 0;
    for (size_t i = 0; i < bytes.size(); ++i) {
        value |= std::to_integer<uint64_t>(bytes[i]) << (8 * i);
    }
    return value;
}

std::string toUtf8(std::span<const std::byte> bytes) {
    std::string text;
    for (const std::byte one : bytes) {
        const auto byte = std::to_integer<unsigned>(one);
        if (byte == 0) {
            break;
        }
        if (byte < 0x80) {
            text += static_cast<char>(byte);
        } else {
            text +=
                {static_cast<char>(0xC0 | (byte >> 6)), static_cast<char>(0x80 | (byte & 0x3F))};
        }
    }
    return text;
}

std::string toHex(std::span<const std::byte> bytes) {
    std::string text;
    for (const std::byte one : bytes) {
        text += {kDigits[std::to_integer<size_t>(one >> 4)],
                 kDigits[std::to_integer<size_t>(one & std::byte{0xF})]};
    }
    return text;
}

std::optional<std::vector<std::byte>> fromHex(std::string_view text) {
    if (text.size() % 2 != 0 || text.find_first_not_of(kDigits) != std::string_view::npos) {
        return std::nullopt;
    }
    std::vector<std::byte> bytes;
    for (size_t i = 0; i < text.size(); i += 2) {
        bytes.push_back(
            static_cast<std::byte>(kDigits.find(text[i]) << 4 | kDigits.find(text[i + 1])));
    }
    return bytes;
}

std::string packBytes(std::span<const std::byte> bytes) {
    constexpr size_t kShortestRun = 3;
    std::string text;
    while (!bytes.empty()) {
        const auto end =
            std::find_if(bytes.begin(), bytes.end(), [](std::byte b) { return b != std::byte{}; });
        const auto zeros = static_cast<size_t>(end - bytes.begin());
        const bool isRun = zeros >= kShortestRun;
        text += isRun ? '(' + std::to_string(zeros) + ')' : toHex(bytes.first(1));
        bytes = bytes.subspan(isRun ? zeros : 1);
    }
    return text;
}

}  // namespace kiv::emulator
