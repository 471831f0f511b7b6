#ifndef FUZZ_FUZZINPUT_H
#define FUZZ_FUZZINPUT_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

/// What each target defines, for the fuzzer and for the replay of a corpus alike. Returns 0.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace kiv::fuzz {

/// A broken promise, as a crash that the fuzzer reports.
inline void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

/// The bytes of one input, taken from the front. When they run out it gives zeros, or fewer.
class FuzzInput {
public:
    FuzzInput(const uint8_t* data, size_t size)
        : bytes(reinterpret_cast<const char*>(data), size) {}

    bool empty() const { return bytes.empty(); }

    uint8_t takeByte() { return empty() ? uint8_t{0} : static_cast<uint8_t>(takeText(1)[0]); }

    /// At most so many, in a buffer that is no longer than they are.
    std::vector<std::byte> take(size_t most) {
        const std::string_view text = takeText(most);
        const auto* const first = reinterpret_cast<const std::byte*>(text.data());
        return {first, first + text.size()};
    }
    /// As many as a byte in front of them says.
    std::vector<std::byte> takeCounted() {
        const size_t count = takeByte();
        return take(count);
    }
    std::string_view takeText(size_t most) {
        const std::string_view taken = bytes.substr(0, most);
        bytes.remove_prefix(taken.size());
        return taken;
    }

private:
    std::string_view bytes;
};

}  // namespace kiv::fuzz

#endif
