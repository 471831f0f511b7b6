#include "Report.h"

#include <algorithm>
#include <utility>

#include "Failure.h"
#include "Text.h"

namespace kiv::kivctl {
namespace {

/// Changes when a member of the JSON records gets another meaning or goes.
constexpr int kSchema = 1;
constexpr size_t kGap = 2;
constexpr size_t kNarrow = 16;  ///< no cell is cut to less

/// "-" if there is no value, two quotation marks if it is empty.
std::string cellOf(const Json& value) {
    if (value.is_null()) {
        return "-";
    }
    if (value.is_boolean()) {
        return value.get<bool>() ? "yes" : "no";
    }
    if (!value.is_string()) {
        return value.dump();
    }
    const auto& text = value.get_ref<const std::string&>();
    return text.empty() ? "\"\"" : text == "-" ? "\\x2d" : escape(text);
}

/// A text that is not UTF-8 is shown as its bytes.
Json printable(const Json& value) {
    try {
        static_cast<void>(value.dump());
        return value;
    } catch (const Json::exception&) {
        constexpr char kDigits[] = "0123456789abcdef";
        std::string hex;
        for (const unsigned char byte : value.get_ref<const std::string&>()) {
            hex += {kDigits[byte >> 4], kDigits[byte & 0xf]};
        }
        return {{"hex", hex}};
    }
}

std::string fitted(const std::string& cell, size_t width) {
    return cell.size() <= width ? cell : cell.substr(0, width - 2) + "..";
}

const char* colourOf(Tone tone) {
    switch (tone) {
        case Tone::good:
            return "\x1b[32m";
        case Tone::warning:
            return "\x1b[33m";
        case Tone::bad:
            return "\x1b[31m";
        default:
            return "";
    }
}

/// Takes from the widest columns until a line fits, or all are narrow.
void narrow(std::vector<size_t>& widths, size_t limit) {
    // Of two columns of a narrow terminal each gets a half.
    const size_t least = std::clamp(limit / 2, kGap + 2, kGap + kNarrow) - kGap;
    const auto total = [&] {
        size_t sum = 0;
        for (const size_t width : widths) {
            sum += width > 0 ? kGap + width : 0;
        }
        return sum;
    };
    for (size_t sum = total(); sum > limit; sum = total()) {
        const auto widest = std::max_element(widths.begin(), widths.end());
        if (widest == widths.end() || *widest <= least) {
            return;
        }
        *widest -= std::min(sum - limit, *widest - least);
    }
}

}  // namespace

Printer::Table& Printer::tableOf(const Report& report) {
    const auto found = std::find_if(tables.begin(), tables.end(),
                                    [&](const Table& one) { return one.report == &report; });
    if (found != tables.end()) {
        return *found;
    }
    Table table{&report, {}, {}};
    const auto select = [&](const std::string* name) {
        for (size_t index = 0; index < report.fields.size(); ++index) {
            if (name == nullptr || *name == report.fields[index].name) {
                table.columns.push_back(index);
            }
        }
    };
    for (const std::string& name : options.fields) {
        select(&name);
    }
    if (options.fields.empty()) {
        select(nullptr);
    }
    if (options.format == Format::tsv && !table.columns.empty()) {
        std::string line = std::string("#") + report.name;
        for (const size_t column : table.columns) {
            line += std::string("\t") + report.fields[column].name;
        }
        out.print(line + "\n");
    }
    return tables.emplace_back(std::move(table));
}

void Printer::declare(const Report& report) { tableOf(report); }

void Printer::add(const Report& report, const std::vector<Json>& values, Tone tone) {
    Table& table = tableOf(report);
    if (table.columns.empty()) {
        return;
    }
    Json object;
    if (options.format == Format::json) {
        object = {{"schema", kSchema}, {"report", report.name}};
    }
    Row row{{}, tone};
    for (const size_t column : table.columns) {
        const Field& field = report.fields[column];
        const bool isHidden = field.isSecret && !options.showSecrets && !values[column].is_null();
        const Json value = isHidden ? Json("***") : values[column];
        if (options.format == Format::json) {
            object[field.name] = printable(value);
        } else {
            row.cells.push_back(cellOf(value));
        }
    }
    if (options.format == Format::json) {
        out.print(object.dump() + "\n");
    } else if (options.format == Format::tsv) {
        std::string line = report.name;
        for (const std::string& cell : row.cells) {
            line += "\t" + cell;
        }
        out.print(line + "\n");
    } else {
        table.rows.push_back(std::move(row));
    }
}

void Printer::finish() {
    if (options.format != Format::table) {
        tables.clear();
        return;
    }
    for (const Table& table : tables) {
        if (!table.columns.empty()) {
            print(table);
        }
    }
    tables.clear();
}

void Printer::print(const Table& table) {
    out.print(std::exchange(isFirst, false) ? "" : "\n");
    if (table.report->isSentence) {
        printSentences(table);
        return;
    }
    if (*table.report->title != '\0') {
        out.print(std::string(table.report->title) + "\n");
    }
    // 0 for a column that is left out.
    std::vector<size_t> widths(table.columns.size(), 0);
    for (size_t i = 0; i < widths.size() && table.rows.empty(); ++i) {
        widths[i] = std::string_view(table.report->fields[table.columns[i]].name).size();
    }
    for (const Row& row : table.rows) {
        for (size_t i = 0; i < row.cells.size(); ++i) {
            const std::string_view heading = table.report->fields[table.columns[i]].name;
            if (row.cells[i] != "-") {
                widths[i] = std::max({widths[i], heading.size(), row.cells[i].size()});
            }
        }
    }
    const size_t limit = out.width() > 0 ? out.width() : SIZE_MAX;
    narrow(widths, limit);
    // What still doesn't fit goes into further blocks, each with the first column.
    std::vector<size_t> block;
    size_t used = 0;
    for (size_t i = 0; i < widths.size(); ++i) {
        const size_t needed = widths[i] > 0 ? kGap + widths[i] : 0;
        if (used + needed > limit && block.size() > 1) {
            printBlock(table, block, widths);
            block = {block.front()};
            used = kGap + widths[block.front()];
        }
        if (needed > 0) {
            block.push_back(i);
            used += needed;
        }
    }
    printBlock(table, block, widths);
}

void Printer::printSentences(const Table& table) {
    for (const Row& row : table.rows) {
        size_t used = 0;
        for (size_t i = 0; i < row.cells.size(); ++i) {
            std::string name = table.report->fields[table.columns[i]].name;
            std::replace(name.begin(), name.end(), '_', ' ');
            const bool isLast = i + 1 == row.cells.size();
            const std::string part = name + ": " + row.cells[i] + (isLast ? "" : ",");
            const bool fits = out.width() == 0 || used + 1 + part.size() <= out.width();
            out.print((used == 0 ? "" : fits ? " " : "\n") + part);
            used = (fits && used > 0 ? used + 1 : 0) + part.size();
        }
        out.print("\n");
    }
}

void Printer::printBlock(const Table& table, const std::vector<size_t>& block,
                         const std::vector<size_t>& widths) {
    const auto line = [&](const auto& cellAt, const char* colour) {
        std::string text;
        for (const size_t i : block) {
            const std::string cell = fitted(cellAt(i), widths[i]);
            text += std::string(kGap, ' ') + cell + std::string(widths[i] - cell.size(), ' ');
        }
        text.erase(text.find_last_not_of(' ') + 1);
        const bool isPlain = *colour == '\0' || !out.isColoured();
        out.print(isPlain ? text + "\n" : colour + text + "\x1b[0m\n");
    };
    line([&](size_t i) { return std::string(table.report->fields[table.columns[i]].name); },
         "\x1b[1m");
    for (const Row& row : table.rows) {
        line([&](size_t i) { return row.cells[i]; }, colourOf(row.tone));
    }
}

void Printer::requireFields(const std::vector<const Report*>& reports) const {
    std::vector<std::string> known;
    for (const Report* report : reports) {
        for (const Field& field : report->fields) {
            known.emplace_back(field.name);
        }
    }
    for (const std::string& name : options.fields) {
        if (std::find(known.begin(), known.end(), name) == known.end()) {
            const std::string near = nearest(name, known);
            throw Failure(kUsage, "--fields: no field " + quote(name) +
                                      (near.empty() ? "" : "; did you mean " + near + "?"));
        }
    }
}

}  // namespace kiv::kivctl
