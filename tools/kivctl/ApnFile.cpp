#include "ApnFile.h"

#include <expat.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <memory>
#include <utility>

#include "Failure.h"
#include "Files.h"
#include "Text.h"

namespace kiv::kivctl {
namespace {

/// Reads a file piece by piece; what expat calls throws nothing through it.
class Reader {
public:
    explicit Reader(const std::string& path) : parser(XML_ParserCreate(nullptr), XML_ParserFree) {
        if (!parser) {
            throw std::bad_alloc();
        }
        file.path = path;
        XML_SetUserData(parser.get(), this);
        XML_SetElementHandler(
            parser.get(),
            [](void* reader, const char* name, const char** attributes) {
                self(reader).guard([&] { self(reader).onStart(name, attributes); });
            },
            [](void* reader, const char*) { --self(reader).depth; });
        XML_SetXmlDeclHandler(parser.get(),
                              [](void* reader, const char*, const char* encoding, int) {
                                  self(reader).guard([&] { self(reader).onDeclaration(encoding); });
                              });
        // Without what the document refers to, its entities would silently become nothing.
        XML_SetNotStandaloneHandler(parser.get(), [](void*) -> int { return XML_STATUS_ERROR; });
    }

    /// Bytes that were filled in at place() are read.
    void take(size_t size, bool isLast) {
        // A piece that never ends would be looked at again with each further piece.
        constexpr XML_Index kLongestPiece = 4 << 20;
        fed += static_cast<XML_Index>(size);
        const bool isGood =
            XML_ParseBuffer(parser.get(), static_cast<int>(size), isLast) != XML_STATUS_ERROR;
        if (thrown) {
            std::rethrow_exception(thrown);
        }
        if (!isGood) {
            refuse(XML_ErrorString(XML_GetErrorCode(parser.get())));
        }
        if (fed - XML_GetCurrentByteIndex(parser.get()) > kLongestPiece) {
            refuse("an element, a comment or a text of more than 4 MiB");
        }
    }

    void* place(size_t size) {
        void* const buffer = XML_GetBuffer(parser.get(), static_cast<int>(size));
        if (buffer == nullptr) {
            throw std::bad_alloc();
        }
        return buffer;
    }

    ApnFile finish() {
        if (file.entries.empty()) {
            throw Failure(kCannotRead, file.path + ": no <apn> element within <apns>");
        }
        for (size_t index = 0; index < file.entries.size(); ++index) {
            const ApnEntry& entry = file.entries[index];
            if (!entry.plmn.empty()) {
                file.byPlmn[entry.plmn].push_back(index);
            }
            if (entry.carrierId >= 0) {
                file.byCarrierId[entry.carrierId].push_back(index);
            }
        }
        return std::move(file);
    }

private:
    static Reader& self(void* reader) { return *static_cast<Reader*>(reader); }

    template <class Action>
    void guard(Action action) {
        try {
            action();
        } catch (...) {
            thrown = std::current_exception();
            XML_StopParser(parser.get(), XML_FALSE);
        }
    }

    size_t line() const { return XML_GetCurrentLineNumber(parser.get()); }
    size_t column() const { return XML_GetCurrentColumnNumber(parser.get()) + 1; }

    [[noreturn]] void refuse(const std::string& what) const {
        throw Failure(kCannotRead, file.path + ":" + std::to_string(line()) + ":" +
                                       std::to_string(column()) + ": " + what);
    }

    void onDeclaration(const char* encoding) const {
        const std::string given = encoding == nullptr ? "utf-8" : encoding;
        const std::string name = lowered(given);
        if (name != "utf-8" && name != "utf-16" && name != "utf-16le" && name != "utf-16be") {
            refuse("the encoding is " + quote(given) + ", neither UTF-8 nor UTF-16");
        }
    }

    void onStart(const char* name, const char** attributes) {
        const std::string_view element = name;
        if (depth == 0 && element != "apns") {
            refuse("the root element is " + quote(element) + ", not 'apns'");
        }
        if (++depth == 2 && element == "apn") {
            file.entries.push_back(readApnEntry(attributes));
            file.entries.back().line = line();
            file.entries.back().column = column();
        }
    }

    std::unique_ptr<XML_ParserStruct, void (*)(XML_Parser)> parser;
    ApnFile file;
    size_t depth = 0;
    XML_Index fed = 0;
    std::exception_ptr thrown;
};

}  // namespace

ApnFile readApnFile(const std::string& path, const ReadingProgress& progress) {
    constexpr size_t kPiece = 1 << 20;
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
    struct stat status {};
    if (file.get() < 0 || fstat(file.get(), &status) != 0) {
        throw Failure(kCannotRead, path + ": " + std::strerror(errno));
    }
    Reader reader(path);
    size_t done = 0;
    for (bool isLast = false; !isLast;) {
        if (progress) {
            progress(done, S_ISREG(status.st_mode) ? static_cast<size_t>(status.st_size) : 0);
        }
        const ssize_t count = read(file.get(), reader.place(kPiece), kPiece);
        if (count < 0 && errno != EINTR) {
            throw Failure(kCannotRead, path + ": " + std::strerror(errno));
        }
        if (count >= 0) {
            isLast = count == 0;
            done += static_cast<size_t>(count);
            reader.take(static_cast<size_t>(count), isLast);
        }
    }
    return reader.finish();
}

ApnFile parseApnFile(const std::string& path, std::string_view text) {
    Reader reader(path);
    std::memcpy(reader.place(text.size() + 1), text.data(), text.size());
    reader.take(text.size(), true);
    return reader.finish();
}

}  // namespace kiv::kivctl
