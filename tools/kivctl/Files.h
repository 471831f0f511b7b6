#ifndef TOOLS_KIVCTL_FILES_H
#define TOOLS_KIVCTL_FILES_H

#include <unistd.h>

#include <string>
#include <vector>

namespace kiv::kivctl {

/// An open file, or a negative number; closed at the end.
class Descriptor {
public:
    explicit Descriptor(int number) : number(number) {}
    ~Descriptor() {
        if (number >= 0) {
            close(number);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const { return number; }

private:
    const int number;
};

/// A file that an option names.
struct NamedFile {
    const char* option;
    std::string path;  ///< empty if the option is not given
    bool isWritten;
};

/// Throws Failure if one file, whatever its names, is written under one option and used under
/// another. Opens nothing.
void requireDistinct(const std::vector<NamedFile>& files);

/// Sees to it that only the owner may read the file, if it exists as a regular one. Throws Failure.
void protectSecrets(const std::string& path);

/// The file that the path leads to, through symbolic links. Throws Failure.
std::string targetOf(const std::string& path);

/// Keeps other runs from a file that this one reads and then replaces, by a file FILE.lock beside
/// it that is removed in the end. Ends with the process, however that ends.
///
/// Threads: one. Blocking: the constructor waits a second for another run.
class FileLock {
public:
    /// Throws Failure, with who holds the lock.
    explicit FileLock(const std::string& path);
    ~FileLock();
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

private:
    bool tryToLock();

    const std::string path;
    int file = -1;
    int holder = 0;  ///< process that has it
};

/// Has SIGINT and SIGTERM end the run in order from now on, rather than at once: they interrupt
/// what blocks. SIGPIPE is ignored: a closed pipe is a failed write.
void catchSignals();

/// Throws Failure if one of the two has come. To be called between any two steps, and where a
/// blocking call was interrupted.
void endIfInterrupted();

}  // namespace kiv::kivctl

#endif
