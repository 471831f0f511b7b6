#ifndef TOOLS_KIVCTL_OUTPUT_H
#define TOOLS_KIVCTL_OUTPUT_H

#include <chrono>
#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>

namespace kiv::kivctl {

/// Takes the process's standard output for the tool alone, and leaves /dev/null in its place: the
/// library writes there too, until the process ends. Throws Failure.
std::FILE* claimStandardOutput();

/// Where the tool writes: results to one stream, messages to the other. Does not own them.
///
/// Threads: one. Blocking: as the streams; a signal ends a write that blocks.
class Output {
public:
    Output(std::FILE* results, std::FILE* messages);

    /// The text as it is. Throws Failure.
    void print(std::string_view text);
    /// One line about what is wrong.
    void complain(std::string_view text);
    /// Draws how far the work is and how long it will take, if somebody watches it at a terminal
    /// for more than a second. A total of 0 is one that is not known. Throws Failure when the run
    /// is to end.
    void showProgress(const char* what, size_t done, size_t total);
    /// Throws Failure unless everything printed has got out.
    void finish();

    /// Columns of the terminal that results go to; 0 if they go elsewhere.
    size_t width() const;
    /// Whether results may be coloured.
    bool isColoured() const { return coloured; }

private:
    using Clock = std::chrono::steady_clock;

    void clearProgress();

    std::FILE* const out;
    std::FILE* const err;
    const bool isWatched;
    const bool coloured;
    const char* work = nullptr;  ///< what the progress is of
    Clock::time_point begin;
    Clock::time_point lastDrawn;
    size_t drawn = 0;  ///< columns that the progress takes up now
};

/// Has the library's log written to a file from now on, for as long as the process lives; without a
/// name, thrown away. Only the owner may read the file: passwords get into the log. Throws Failure.
void logToFile(const std::string& path);
/// Throws Failure unless the whole log has got into its file.
void finishLog();

}  // namespace kiv::kivctl

#endif
