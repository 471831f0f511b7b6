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
    /// As they are written, since a few digits may stand for many bytes.
    std::string packed(size_t least, size_t most) const {
        if (!json.contains("bytes")) {
            fail(number, "no bytes: record the journal with passwords to replay it");
        }
        std::string bytes = text("bytes");
        const auto unpacked = unpackBytes(bytes, most);
        if (!unpacked || unpacked->size() < least) {
            fail(number, "bytes: not what a journal holds, or not as many");
        }
        return bytes;
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
        line.packed = reader.packed(0, kLongestIndication);
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
        line.packed = reader.packed(lengths->response, lengths->response);
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
    const bool isOfClient =
        isMessage || direction == kNotify || direction == kError || direction == kOpen;
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

/// A value as it may be shown: passwords are left out.
std::string shown(const Json& json, const std::string& place) {
    const Json::json_pointer pointer(place);
    if (!json.contains(pointer)) {
        return "nothing";
    }
    if (place.find("password") != std::string::npos) {
        return "***";
    }
    return json[pointer].is_structured() ? "others" : json[pointer].dump();
}

}  // namespace

bool RecordedLine::isAwaited() const {
    return direction == kOpen || direction == kRequest || direction == kProgram;
}

std::string RecordedLine::describe() const {
    const bool isRequest = direction == kRequest;
    std::string text = direction + " " + (isRequest ? std::string(messageName(messageId)) : what);
    return client == 0 ? text : text + " of client " + std::to_string(client);
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
    if (!stream.eof()) {
        throw ReplayError("it can't be read");
    }
    if (lines.empty()) {
        throw ReplayError("it holds nothing");
    }
    return lines;
}

bool Replay::isAsRecorded(const RecordedLine& line, const Request& request) {
    if (line.messageId != request.messageId) {
        differ(std::string("recorded ") + line.describe() + ", sent " +
               messageName(request.messageId));
        return false;
    }
    const Json recorded = Json::parse(line.members);
    const Json sent = Json::parse(describeRequest(request, true));
    // A journal without passwords is held against as little.
    const Json masked = Json::parse(describeRequest(request, false));
    if (recorded == sent || recorded == masked) {
        return true;
    }
    const bool isMasked = line.members.find("\"***\"") != std::string::npos;
    const Json changes = Json::diff(recorded, isMasked ? masked : sent);
    const auto place = changes[0]["path"].get<std::string>();
    differ(std::string(messageName(line.messageId)) + ": members" + place + ": recorded " +
           shown(recorded, place) + ", sent " + shown(sent, place));
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
        if (line->isAwaited()) {
            differ("recorded " + line->describe() + ", never seen");
            return;
        }
        advance();
    }
    if (!program.empty()) {
        differ("the program did " + program.front() + ", recorded nothing more");
    }
}

bool Replay::takeProgram(const RecordedLine& line) {
    if (program.empty()) {
        return false;
    }
    if (program.front() != line.what) {
        differ("recorded " + line.describe() + ", the program did " + program.front());
        return false;
    }
    program.pop_front();
    return true;
}

}  // namespace kiv::emulator
