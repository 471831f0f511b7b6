#ifndef TOOLS_KIVCTL_OUTPUT_H
#define TOOLS_KIVCTL_OUTPUT_H

#include <cstddef>
#include <cstdio>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace kiv::kivctl {

/// What was to be written could not be: a full disk, a closed pipe.
struct OutputError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Takes the process's standard output for the tool alone, and leaves /dev/null in its place: the
/// library writes there too, until the process ends. Throws OutputError.
std::FILE* claimStandardOutput();

/// Where the tool writes: results to one stream, messages to the other. Does not own them.
class Output {
public:
    Output(std::FILE* results, std::FILE* messages);

    /// The text as it is. Throws OutputError.
    void print(std::string_view text);
    /// One line about what is wrong.
    void complain(std::string_view text);
    /// Draws how far the work is, if somebody watches it at a terminal.
    void showProgress(size_t done, size_t total);
    /// Throws OutputError unless everything printed has got out.
    void finish();

private:
    void clearProgress();

    std::FILE* const out;
    std::FILE* const err;
    const bool isTerminal;
    std::string progress;
};

/// Has the library's log written to a file from now on, for as long as the process lives. Only the
/// owner may read the file: passwords get into the log. Throws OutputError.
void logToFile(const std::string& path);
/// Has it thrown away.
void discardLog();
/// Has an action carried out when this thread calls the library, and when it has dropped a key, as
/// the log tells; null ends it. The library holds no lock then, but the log does: the action must
/// not use the library on this thread.
void watchCalls(const std::function<void()>* action);
/// Throws OutputError unless the whole log has got into its file.
void finishLog();

}  // namespace kiv::kivctl

#endif
