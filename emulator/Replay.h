#ifndef EMULATOR_REPLAY_H
#define EMULATOR_REPLAY_H

#include <chrono>
#include <cstddef>
#include <deque>
#include <iosfwd>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "Clock.h"
#include "ModemEmulator.h"

namespace kiv::emulator {

/// The journal can't be replayed; the text tells which line, and why.
struct ReplayError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// A line of a journal, as far as a replay needs it.
struct RecordedLine {
    size_t number = 0;
    std::chrono::microseconds at{};  ///< since the journal began
    std::string direction;           ///< one of Journal.h's
    unsigned client = 0;             ///< 0 for none
    unsigned messageId = 0;
    int transport = RAV_CLIENT_OK;
    std::string members;  ///< of a request, as a JSON object
    std::string packed;   ///< the bytes of an answer or an indication, as packBytes writes them
    std::string what;

    /// The line in a few words.
    std::string describe() const;

    /// Whether it is up to the library, or to the program, to do this; all else is the modem's.
    bool isAwaited() const;
};

/// Reads a journal, which may be hostile: what a journal can't hold, or a replay can't do without,
/// is refused with a ReplayError.
std::vector<RecordedLine> readJournal(std::istream& stream);

/// How far a recorded journal has been replayed, and what was different.
///
/// Threads: one at a time. Ownership: plain value. Blocking: never.
class Replay {
public:
    Replay(std::string path, std::vector<RecordedLine> lines, TimePoint start)
        : path(std::move(path)), lines(std::move(lines)), start(start) {}

    /// The line that comes next; null after the last one and after a difference.
    const RecordedLine* next() const {
        return difference || position == lines.size() ? nullptr : &lines[position];
    }
    void advance() { ++position; }
    TimePoint due(const RecordedLine& line) const { return start + line.at; }

    /// Holds a request against the line that recorded one; false, and noted, if it differs.
    bool isAsRecorded(const RecordedLine& line, const Request& request);
    /// Notes the first difference, at the line that comes next.
    void differ(const std::string& what);
    /// Notes what never came, if there was no difference so far.
    void finish();
    const std::optional<std::string>& firstDifference() const { return difference; }

    /// The program turns the power on or off, which the journal tells when to do.
    void noteProgram(const char* what) { program.emplace_back(what); }
    /// Whether the program has done what the line says; if it did the other thing, that is noted.
    bool takeProgram(const RecordedLine& line);

private:
    const std::string path;
    const std::vector<RecordedLine> lines;
    const TimePoint start;
    size_t position = 0;
    std::deque<std::string> program;
    std::optional<std::string> difference;
};

}  // namespace kiv::emulator

#endif
