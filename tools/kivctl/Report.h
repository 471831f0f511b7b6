#ifndef TOOLS_KIVCTL_REPORT_H
#define TOOLS_KIVCTL_REPORT_H

#include <list>
#include <string>
#include <vector>

#include "Output.h"
#include "SettingList.h"

namespace kiv::kivctl {

enum class Format {
    table,  ///< for people: aligned, without the columns that hold nothing
    tsv,    ///< for programs: every column, tab-separated, the report's name first in each line
    json,   ///< for programs: an object a line, see docs/kivctl.md
};

struct Field {
    const char* name;
    bool isSecret = false;
};

/// A kind of record that a command reports.
struct Report {
    const char* name;
    const char* title;  ///< above its table; empty for none
    std::vector<Field> fields;
    bool isSentence = false;  ///< people read its one record as a line of text
};

enum class Tone { plain, good, warning, bad };

/// How records are to be shown.
struct ReportOptions {
    Format format = Format::table;
    std::vector<std::string> fields;  ///< empty for all, in their own order
    bool showSecrets = false;
};

/// Turns records into tables, lines of values or JSON. Programs get each record at once, people
/// get the tables at the end, since the columns' widths depend on all rows.
///
/// Threads: one. Ownership: the output and the reports outlive it.
class Printer {
public:
    Printer(Output& output, ReportOptions options) : out(output), options(std::move(options)) {}

    /// Announces a report, so that it is shown even if it stays without records.
    void declare(const Report& report);
    /// As many values as the report has fields: texts, numbers, flags, null.
    void add(const Report& report, const std::vector<Json>& values, Tone tone = Tone::plain);
    /// Shows what is left. Throws Failure.
    void finish();

    /// Throws Failure if a field was chosen that none of the reports has.
    void requireFields(const std::vector<const Report*>& reports) const;

private:
    struct Row {
        std::vector<std::string> cells;
        Tone tone;
    };
    struct Table {
        const Report* report;
        std::vector<size_t> columns;  ///< indexes of the fields to show
        std::vector<Row> rows;
    };

    Table& tableOf(const Report& report);
    void print(const Table& table);
    void printSentences(const Table& table);
    void printBlock(const Table& table, const std::vector<size_t>& block,
                    const std::vector<size_t>& widths);

    Output& out;
    const ReportOptions options;
    std::list<Table> tables;
    bool isFirst = true;
};

}  // namespace kiv::kivctl

#endif
