#include "Tables.h"

#include <algorithm>
#include <utility>

namespace kiv::kivctl {
namespace {

std::string joined(const std::vector<std::string>& cells) {
    std::string line;
    for (const std::string& one : cells) {
        line += '\t' + one;
    }
    return line + '\n';
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

std::string cell(const std::optional<std::string>& value) {
    if (!value) {
        return "-";
    }
    if (value->empty()) {
        return "\"\"";
    }
    return *value == "-" ? "\\x2d" : escape(*value);
}

Table::Table(std::string name, std::vector<std::string> headings)
    : name(std::move(name)), headings(std::move(headings)) {}

void Table::add(std::vector<std::string> cells) {
    cells.resize(headings.size(), "-");
    rows.push_back(std::move(cells));
}

std::string Table::text(Format format) const {
    if (format == Format::table) {
        return alignedText();
    }
    std::string text = "#" + name + joined(headings);
    for (const auto& row : rows) {
        text += name + joined(row);
    }
    return text;
}

std::string Table::alignedText() const {
    // 0 for a column that is left out.
    std::vector<size_t> widths(headings.size(), 0);
    for (const auto& row : rows) {
        for (size_t column = 0; column < row.size(); ++column) {
            if (row[column] != "-") {
                widths[column] =
                    std::max({widths[column], headings[column].size(), row[column].size()});
            }
        }
    }
    const auto aligned = [&](const std::vector<std::string>& cells) {
        std::string line;
        for (size_t column = 0; column < cells.size(); ++column) {
            if (widths[column] > 0) {
                line +=
                    "  " + cells[column] + std::string(widths[column] - cells[column].size(), ' ');
            }
        }
        return line.erase(line.find_last_not_of(' ') + 1) + '\n';
    };
    std::string text = aligned(headings);
    for (const auto& row : rows) {
        text += aligned(row);
    }
    return text;
}

}  // namespace kiv::kivctl
