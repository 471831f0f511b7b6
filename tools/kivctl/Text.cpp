#include "Text.h"

#include <algorithm>
#include <charconv>
#include <numeric>
#include <utility>

namespace kiv::kivctl {
namespace {

/// How many letters must be put in, taken out or replaced to make one word of the other.
size_t distance(std::string_view a, std::string_view b) {
    std::vector<size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 0; i < a.size(); ++i) {
        size_t diagonal = std::exchange(row[0], i + 1);
        for (size_t j = 0; j < b.size(); ++j) {
            const size_t replaced = diagonal + (a[i] == b[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, row[j] + 1, diagonal + 1});
        }
    }
    return row.back();
}

}  // namespace

std::string escape(std::string_view bytes) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte < 0x7f && c != '\\' && c != '"') {
            text += c;
        } else {
            text += {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 0xf]};
        }
    }
    return text;
}

std::string quote(std::string_view value) {
    constexpr size_t kMost = 40;
    return value.size() <= kMost ? "'" + escape(value) + "'"
                                 : "'" + escape(value.substr(0, kMost)) + "...'";
}

std::string withoutContent(const std::string& error) {
    return error.substr(0, error.find("; last read"));
}

std::string lowered(std::string_view text) {
    std::string result(text);
    for (char& c : result) {
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
    return result;
}

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view kBlanks = " \t\r\n";
    const size_t first = std::min(text.find_first_not_of(kBlanks), text.size());
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::vector<std::string_view> split(std::string_view text, char separator) {
    std::vector<std::string_view> pieces;
    for (size_t start = 0; start <= text.size();) {
        const size_t end = std::min(text.find(separator, start), text.size());
        pieces.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return pieces;
}

bool areDigits(std::string_view text, size_t fewest, size_t most) {
    return text.size() >= fewest && text.size() <= most &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

std::optional<int> readNumber(std::string_view text, int most) {
    int value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || end != text.data() + text.size() || value < 0 || value > most) {
        return std::nullopt;
    }
    return value;
}

std::string nearest(std::string_view word, const std::vector<std::string>& words) {
    constexpr size_t kLongest = 40;
    std::string best;
    size_t least = word.size() > kLongest ? 0 : 1 + word.size() / 3;
    for (const std::string& one : words) {
        const size_t difference = least == 0 ? 0 : distance(word, one);
        if (difference < least || (best.empty() && difference == least && least > 0)) {
            least = difference;
            best = one;
        }
    }
    return best;
}

}  // namespace kiv::kivctl
