#ifndef KIVR_SRC_LOCALLOGBUFFER_H
#define KIVR_SRC_LOCALLOGBUFFER_H

#include <cstddef>
#include <ctime>
#include <list>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "ThreadSafety.h"

namespace kiv {

/// Keeps the most recent notable log lines in memory, for bug reports.
///
/// Threads: any, at any time; the singleton also during static destruction.
/// Ownership: the singleton is never destroyed. Nothing blocks but for the short lock.
class LocalLogBuffer {
public:
    static LocalLogBuffer& getInstance();

    LocalLogBuffer(std::string name, int capacity);

    /// Keeps msg behind the local time, in milliseconds, and the buffer's name.
    void addLogWithTimestamp(std::string_view msg) KIV_EXCLUDES(mutex);
    /// The kept lines, oldest first; at most capacity + 1.
    std::vector<std::string> getLogs() KIV_EXCLUDES(mutex);
    /// Removes every line.
    void flush() KIV_EXCLUDES(mutex);
    std::string getName() { return name; }

private:
    const std::string name;
    const std::string suffix;  ///< the name as the lines have it
    const size_t capacity;

    std::mutex mutex;
    std::list<std::string> logs KIV_GUARDED_BY(mutex);
    /// The beginning of every line of that second: without it a line takes 20 times as long.
    std::string head KIV_GUARDED_BY(mutex);
    time_t second KIV_GUARDED_BY(mutex) = 0;
};

}  // namespace kiv

#endif
