#include "StateFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace kiv::emulator {
namespace {

/// Three times what two full tables can take.
constexpr size_t kMostBytes = size_t{4} << 20;
constexpr size_t kBytesPerWrite = 4096;

[[noreturn]] void failStep(const std::string& path, const std::string& step) {
    throw StateFileError(path + ": can't " + step + ": " + std::strerror(errno));
}

class Descriptor {
public:
    explicit Descriptor(int number = -1) : number(number) {}
    ~Descriptor() { close(); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const { return number; }
    bool take(int opened) { return (number = opened) >= 0; }
    bool close() { return number < 0 || ::close(std::exchange(number, -1)) == 0; }

private:
    int number;
};

/// One write of the file. A temporary file that is left over is removed with this.
class Replacement {
public:
    Replacement(const std::string& path, const WriteHook& hook)
        : path(path), hook(hook), temporary(path + ".XXXXXX") {}
    ~Replacement() {
        if (isTemporary) {
            unlink(temporary.c_str());
        }
    }
    Replacement(const Replacement&) = delete;
    Replacement& operator=(const Replacement&) = delete;

    void run(std::string_view text) {
        Descriptor file, folder;
        // Made for the owner's eyes only.
        carryOut("create", [&] { return file.take(mkostemp(temporary.data(), O_CLOEXEC)); });
        isTemporary = true;
        while (!text.empty()) {
            carryOut("write", [&] { return writeSome(file.get(), text); });
        }
        carryOut("sync", [&] { return fsync(file.get()) == 0; });
        carryOut("close", [&] { return file.close(); });
        carryOut("rename", [&] { return std::rename(temporary.c_str(), path.c_str()) == 0; });
        isTemporary = false;
        // Only then is it sure that the name leads to the new file.
        const size_t slash = path.rfind('/');
        const std::string name = slash == std::string::npos ? "." : path.substr(0, slash + 1);
        carryOut("open its folder", [&] {
            return folder.take(::open(name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        });
        carryOut("sync its folder", [&] { return fsync(folder.get()) == 0; });
    }

private:
    template <class Operation>
    void carryOut(const char* step, Operation operation) {
        const int failure = hook ? hook(step) : 0;
        if (failure != 0) {
            errno = failure;
        }
        if (failure != 0 || !operation()) {
            failStep(path, step);
        }
    }

    static bool writeSome(int file, std::string_view& text) {
        const ssize_t count = write(file, text.data(), std::min(text.size(), kBytesPerWrite));
        if (count < 0) {
            return errno == EINTR;
        }
        text.remove_prefix(static_cast<size_t>(count));
        return true;
    }

    const std::string& path;
    const WriteHook& hook;
    std::string temporary;
    bool isTemporary = false;
};

std::string readWhole(const std::string& path) {
    // Opening a pipe must not wait for somebody to write into it.
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat status {};
    if (file.get() < 0 || fstat(file.get(), &status) != 0) {
        failStep(path, "open");
    }
    if (!S_ISREG(status.st_mode)) {
        throw StateFileError(path + ": not a regular file");
    }
    std::string text;
    char buffer[65536];
    while (text.size() <= kMostBytes) {
        const ssize_t count = read(file.get(), buffer, sizeof(buffer));
        if (count == 0) {
            return text;
        }
        if (count > 0) {
            text.append(buffer, static_cast<size_t>(count));
        } else if (errno != EINTR) {
            failStep(path, "read");
        }
    }
    throw StateFileError(path + ": longer than " + std::to_string(kMostBytes) + " bytes");
}

}  // namespace

void writeStateFile(const std::string& path, const ProfileTables& tables, const WriteHook& hook) {
    Replacement(path, hook).run(formatState(path, tables));
}

ProfileTables readStateFile(const std::string& path) { return parseState(path, readWhole(path)); }

}  // namespace kiv::emulator
