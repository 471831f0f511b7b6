#include "Replay.h"

#include <algorithm>
#include <istream>
#include <iterator>
#include <limits>
#include <nlohmann/json.hpp>
#include <string_view>

#include "Encoding.h"
#include "Journal.h"
#include "WdsService.h"

namespace kiv::emulator {
namespace {

using Json = nlohmann::json;

constexpr size_t kLongestIndication = 65535;

[[noreturn]] void fail(size_t line, const std::string& what) {
    throw ReplayError("line " + std::to_string(line) + ": " + what);
}

/// One line's members, checked as they are read.
class LineReader {
public:
    LineReader(size_t number, const std::string& text)
        : number(number), json(Json::parse(text, depthLimit(number), false)) {
        if (!json.is_object()) {
            fail(number, "not a JSON object");
        }
    }

    template <class Number>
    Number count(const char* key, Number most) const {
        const auto found = json.find(key);
        if (found == json.end() || !found->is_number_unsigned() ||
            found->get<uint64_t>() > static_cast<uint64_t>(most)) {
            refuse(key);
        }
        return found->get<Number>();
    }
    std::string text(const char* key) const {
        const auto found = json.find(key);
        if (found == json.end() || !found->is_string()) {
            refuse(key);
        }
        return found->get<std::string>();
    }
    std::string object(const char* key) const {
        const auto found = json.find(key);
        if (found == json.end() || !found->is_object()) {
            refuse(key);
        }
        return found->dump();
    }
    int result(const char* key) const {
        const auto found = json.find(key);
        if (found == json.end() || !found->is_number_integer() ||
            (found->is_number_unsigned() && found->get<uint64_t>() > INT32_MAX) ||
            found->get<int64_t>() < INT32_MIN) {
            refuse(key);
        }
        return found->get<int>();
    }
    std::vector<std::byte> bytes(size_t most) const {
        if (!json.contains("bytes")) {
            fail(number, "no bytes: record the journal with passwords to replay it");
        }
        auto read = unpackBytes(text("bytes"), most);
        if (!read) {
            refuse("bytes");
        }
        return std::move(*read);
    }

private:
    /// What reads and compares them goes down with them.
    static Json::parser_callback_t depthLimit(size_t number) {
        constexpr int kDeepest = 8;
        return [number](int depth, Json::parse_event_t, Json&) {
            return depth <= kDeepest ? true : (fail(number, "too deep"), false);
        };
    }
    [[noreturn]] void refuse(const char* key) const {
        fail(number, json.contains(key) ? std::string(key) + ": not what a journal holds"
                                        : std::string(key) + " is missing");
    }

    const size_t number;
    const Json json;
};

void readMessage(const LineReader& reader, RecordedLine& line) {
    line.messageId = reader.count("id", std::numeric_limits<unsigned>::max());
    if (line.direction == kIndication) {
        line.bytes = reader.bytes(kLongestIndication);
        return;
    }
    const auto lengths = findMessageLengths(line.messageId);
    if (!lengths) {
        fail(line.number, "id: no request of the service");
    }
    if (line.direction == kRequest) {
        line.members = reader.object("members");
        return;
    }
    line.transport = reader.result("transport");
    if (line.transport == RAV_CLIENT_OK) {
        line.bytes = reader.bytes(lengths->response);
        if (line.bytes.size() != lengths->response) {
            fail(line.number, "bytes: " + std::to_string(line.bytes.size()) + ", not the " +
                                  std::to_string(lengths->response) + " of the answer");
        }
    }
}

RecordedLine readLine(size_t number, const std::string& text) {
    constexpr int64_t kLongest = std::chrono::microseconds(std::chrono::hours(24 * 365)).count();
    const LineReader reader(number, text);
    RecordedLine line;
    line.number = number;
    line.at = std::chrono::microseconds(reader.count("us", kLongest));
    line.direction = reader.text("direction");
    const std::string_view direction = line.direction;
    const bool isMessage =
        direction == kRequest || direction == kResponse || direction == kIndication;
    const bool isOfClient = isMessage || direction == kNotify || direction == kError ||
                            direction == kOpen || direction == kRelease;
    if (!isOfClient && direction != kEvent && direction != kProgram) {
        fail(number, "direction: not what a journal holds");
    }
    if (isOfClient) {
        line.client = reader.count("client", std::numeric_limits<unsigned>::max());
        if (line.client == 0) {
            fail(number, "client: they count from 1");
        }
    }
    if (isMessage) {
        readMessage(reader, line);
    } else {
        line.what = reader.text("what");
    }
    return line;
}

std::string quoted(const Json& json, const std::string& place) {
    const Json::json_pointer pointer(place);
    return json.contains(pointer) ? json[pointer].dump() : "nothing";
}

}  // namespace

bool RecordedLine::isAwaited() const {
    return direction == kOpen || direction == kRequest || direction == kProgram;
}

std::vector<RecordedLine> readJournal(std::istream& stream) {
    std::vector<RecordedLine> lines;
    unsigned opened = 0;
    for (std::string text; std::getline(stream, text);) {
        RecordedLine line = readLine(lines.size() + 1, text);
        opened += line.direction == kOpen ? 1 : 0;
        const bool isKnown =
            line.direction == kOpen ? line.client == opened : line.client <= opened;
        if (!isKnown) {
            fail(line.number, "client: it was open before the journal began");
        }
        lines.push_back(std::move(line));
    }
    if (lines.empty()) {
        throw ReplayError("it holds nothing");
    }
    return lines;
}

bool Replay::isAsRecorded(const RecordedLine& line, const Request& request) {
    if (line.messageId != request.messageId) {
        differ(std::string("recorded ") + messageName(line.messageId) + ", sent " +
               messageName(request.messageId));
        return false;
    }
    const Json recorded = Json::parse(line.members);
    // A journal without passwords is held against as little.
    const bool isMasked = line.members.find("\"***\"") != std::string::npos;
    const Json sent = Json::parse(describeRequest(request, !isMasked));
    const Json changes = Json::diff(recorded, sent);
    if (changes.empty()) {
        return true;
    }
    const auto place = changes[0]["path"].get<std::string>();
    differ(std::string(messageName(line.messageId)) + ": members" + place + ": recorded " +
           quoted(recorded, place) + ", sent " + quoted(sent, place));
    return false;
}

void Replay::differ(const std::string& what) {
    const RecordedLine* const line = next();
    if (!difference) {
        difference =
            path + ": " + (line ? "line " + std::to_string(line->number) : "the end") + ": " + what;
    }
}

void Replay::finish() {
    while (const RecordedLine* line = next()) {
        if (line->direction == kOpen || line->direction == kRequest) {
            const bool isRequest = line->direction == kRequest;
            differ("recorded " +
                   (isRequest ? std::string(messageName(line->messageId)) : "open, " + line->what) +
                   ", never seen");
            return;
        }
        advance();
    }
}

bool Replay::takeProgram(const std::string& what) {
    const auto found = std::find(program.begin(), program.end(), what);
    if (found == program.end()) {
        return false;
    }
    program.erase(program.begin(), std::next(found));
    return true;
}

}  // namespace kiv::emulator
