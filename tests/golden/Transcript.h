#ifndef TESTS_GOLDEN_TRANSCRIPT_H
#define TESTS_GOLDEN_TRANSCRIPT_H

#include <functional>
#include <map>
#include <string>

#include "EmulatedModem.h"
#include "Manager.h"

namespace kiv::test {

/// A session with the library, and all that it logs meanwhile, as text: a heading for each step,
/// and below it the lines in their order, each with the thread that wrote the line and the level.
///
/// Nothing in a transcript depends on how the threads take turns. A line of the worker waits until
/// the modem's callbacks are done. A line of the client waits until the worker sleeps in epoll_wait
/// with nothing to read. So the modem's thread is always ahead of the worker, and the worker of the
/// client. Addresses are masked. Descriptors are numbered by their first appearance, tokens from
/// the first of the session on, as are times.
///
/// The Android log prints EVENT as INFO; EVENT is told by the line being kept for dumps. Any other
/// level is followed by + if its line is kept though it should not be, and by - the other way.
///
/// Threads: the thread that runs the test. One at a time.
class Transcript {
public:
    Transcript();
    ~Transcript();
    Transcript(const Transcript&) = delete;
    Transcript& operator=(const Transcript&) = delete;

    /// Carries out the action, and writes down what is logged until the library is at rest again.
    void step(const std::string& heading, const std::function<void()>& action);

    /// Writes down a line, as it is but for what is masked.
    void append(const std::string& label, const std::string& line);

    /// Carries out the action once, right before the client writes a line that begins so.
    static void atLine(const std::string& beginning, const std::function<void()>& action);

    /// Carries out the action while the worker can't log, and so sees all of it at once. What makes
    /// two descriptors readable has to wait in between until the worker is awake.
    static void together(const std::function<void()>& action);
    static void waitUntilHeld();

    /// Blocks until the library and the modem have nothing to do.
    static void waitForRest();

    /// Compares with the committed file of that name, or renews that under KIVR_RENEW_GOLDEN.
    void finish(const std::string& name) const;

private:
    std::string masked(std::string text);

    uint64_t firstToken = 0;
    std::map<std::string, size_t> descriptors;
    std::string text;
};

}  // namespace kiv::test

#endif
