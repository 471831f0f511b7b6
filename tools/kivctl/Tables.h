#ifndef TOOLS_KIVCTL_TABLES_H
#define TOOLS_KIVCTL_TABLES_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kiv::kivctl {

enum class Format {
    table,  ///< for people: aligned, without the columns that hold nothing
    tsv,    ///< for programs: every column, tab-separated, the table's name first in each line
};

/// The text with every byte that does not print as itself as \xNN; a backslash and a quotation
/// mark too, so that it can be read back.
std::string escape(std::string_view bytes);

/// How a cell shows a value: "-" if it is absent, two quotation marks if it is empty.
std::string cell(const std::optional<std::string>& value);

/// A table of cells that print on one line each.
class Table {
public:
    Table(std::string name, std::vector<std::string> headings);

    /// As many cells as there are headings.
    void add(std::vector<std::string> cells);
    bool empty() const { return rows.empty(); }

    std::string text(Format format) const;

private:
    std::string alignedText() const;

    std::string name;
    std::vector<std::string> headings;
    std::vector<std::vector<std::string>> rows;
};

}  // namespace kiv::kivctl

#endif
