#include "ApnFile.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <pugixml.hpp>
#include <set>
#include <unordered_map>

#include "ApnTypeWords.h"
#include "Tables.h"

namespace kiv::kivctl {
namespace {

constexpr size_t kMaxApnName = 150;
constexpr size_t kMaxCredential = 127;
constexpr int kMaxCounter = 65535;

/// An entry while its attributes are read.
struct Draft {
    std::string mcc;
    std::string mnc;
    ProfileParams params;
};

/// What is wrong, if anything is.
using Problem = std::optional<std::string>;

std::string quoted(std::string_view value) { return "'" + escape(value) + "'"; }

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view kBlanks = " \t\r\n";
    const size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

bool areDigits(std::string_view text, size_t fewest, size_t most) {
    return text.size() >= fewest && text.size() <= most &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

std::optional<int> number(std::string_view text, int max) {
    int value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || end != text.data() + text.size() || value < 0 || value > max) {
        return std::nullopt;
    }
    return value;
}

std::optional<bool> truth(std::string_view text) {
    const std::string word = lowered(text);
    if (word == "true" || word == "1") {
        return true;
    }
    if (word == "false" || word == "0") {
        return false;
    }
    return std::nullopt;
}

Problem readApnName(std::string_view value, Draft& draft) {
    const std::string_view name = trimmed(value);
    if (name.size() > kMaxApnName) {
        return "the APN name is longer than 150 bytes";
    }
    draft.params.setApnName(std::string(name));
    return {};
}

Problem readTypes(std::string_view value, Draft& draft) {
    uint32_t mask = 0;
    for (size_t start = 0; start <= value.size();) {
        const size_t end = std::min(value.find(',', start), value.size());
        const std::string word = lowered(trimmed(value.substr(start, end - start)));
        const auto known =
            std::find_if(kApnTypeWords.begin(), kApnTypeWords.end(),
                         [&](const ApnTypeWord& entry) { return entry.word == word; });
        if (known == kApnTypeWords.end() && word != "*") {
            return "unknown APN type " + quoted(word);
        }
        for (const ApnTypeWord& entry : kApnTypeWords) {
            mask |= word == "*" || entry.word == word ? toMask(entry.type) : 0;
        }
        start = end + 1;
    }
    draft.params.setApnTypesMask(mask);
    return {};
}

template <auto set, const char* what>
Problem readCredential(std::string_view value, Draft& draft) {
    if (value.size() > kMaxCredential) {
        return std::string(what) + " is longer than 127 bytes";
    }
    if (!value.empty()) {
        (draft.params.*set)(std::string(value));
    }
    return {};
}

Problem readAuthType(std::string_view value, Draft& draft) {
    const auto type = number(value, 3);
    if (!type) {
        return "authtype is " + quoted(value) + ", not a number from 0 to 3";
    }
    draft.params.setAuthType(static_cast<AuthType>(*type));
    return {};
}

template <auto set, const char* what>
Problem readProtocol(std::string_view value, Draft& draft) {
    const std::string_view words[] = {"IP", "IPV6", "IPV4V6"};
    const IPType types[] = {IPType::V4, IPType::V6, IPType::V4V6};
    const auto* word = std::find(std::begin(words), std::end(words), value);
    if (word == std::end(words)) {
        return std::string(what) + " is " + quoted(value) + ", not IP, IPV6 or IPV4V6";
    }
    (draft.params.*set)(types[word - words]);
    return {};
}

template <auto set, const char* what>
Problem readCounter(std::string_view value, Draft& draft) {
    const auto count = number(value, kMaxCounter);
    if (!count) {
        return std::string(what) + " is " + quoted(value) + ", not a number from 0 to 65535";
    }
    (draft.params.*set)(*count);
    return {};
}

Problem readCarrierEnabled(std::string_view value, Draft& draft) {
    const auto enabled = truth(value);
    if (!enabled) {
        return "carrier_enabled is " + quoted(value) + ", not true or false";
    }
    draft.params.setIsApnDisabled(!*enabled);
    return {};
}

Problem readSkip464Xlat(std::string_view value, Draft& draft) {
    if (value == "-1") {
        return {};
    }
    const auto skip = truth(value);
    if (!skip) {
        return "skip_464xlat is " + quoted(value) + ", not -1, 0 or 1";
    }
    draft.params.setIsClatEnabled(!*skip);
    return {};
}

Problem readMcc(std::string_view value, Draft& draft) {
    draft.mcc = value;
    return {};
}

Problem readMnc(std::string_view value, Draft& draft) {
    draft.mnc = value;
    return {};
}

constexpr char kUser[] = "user";
constexpr char kPassword[] = "password";
constexpr char kProtocol[] = "protocol";
constexpr char kRoamingProtocol[] = "roaming_protocol";
constexpr char kMaxConns[] = "max_conns";
constexpr char kMaxConnsTime[] = "max_conns_time";
constexpr char kWaitTime[] = "wait_time";

using P = ProfileParams;
const std::unordered_map<std::string_view, Problem (*)(std::string_view, Draft&)> kAttributes = {
    {"mcc", readMcc},
    {"mnc", readMnc},
    {"apn", readApnName},
    {"type", readTypes},
    {kUser, readCredential<&P::setUserName, kUser>},
    {kPassword, readCredential<&P::setPassword, kPassword>},
    {"authtype", readAuthType},
    {kProtocol, readProtocol<&P::setHomeIPType, kProtocol>},
    {kRoamingProtocol, readProtocol<&P::setRoamIPType, kRoamingProtocol>},
    {kMaxConns, readCounter<&P::setMaxPdnsConnPerBlock, kMaxConns>},
    {kMaxConnsTime, readCounter<&P::setMaxPdnConnTimer, kMaxConnsTime>},
    {kWaitTime, readCounter<&P::setPdnReqWaitInterval, kWaitTime>},
    {"carrier_enabled", readCarrierEnabled},
    {"skip_464xlat", readSkip464Xlat},
};

/// Reads one element; adds what is wrong with it to problems.
Draft readEntry(const pugi::xml_node& node, std::vector<std::string>& problems) {
    Draft draft;
    std::set<std::string_view> seen;
    for (const pugi::xml_attribute& attribute : node.attributes()) {
        const auto known = kAttributes.find(attribute.name());
        if (known == kAttributes.end()) {
            continue;
        }
        if (!seen.insert(known->first).second) {
            problems.push_back("attribute " + std::string(known->first) + " is given twice");
        } else if (const Problem problem = known->second(attribute.value(), draft)) {
            problems.push_back(*problem);
        }
    }
    for (const char* name : {"mcc", "mnc", "apn"}) {
        if (seen.count(name) == 0) {
            problems.push_back("attribute " + std::string(name) + " is missing");
        }
    }
    const bool isPlmn = areDigits(draft.mcc, 3, 3) && areDigits(draft.mnc, 2, 3);
    const bool isNoPlmn = draft.mcc.empty() && draft.mnc.empty();
    if (seen.count("mcc") == 1 && seen.count("mnc") == 1 && !isPlmn && !isNoPlmn) {
        problems.push_back("mcc " + quoted(draft.mcc) + " and mnc " + quoted(draft.mnc) +
                           " are not 3 and 2 or 3 digits, nor both empty");
    }
    return draft;
}

/// Turns offsets into line numbers, in one pass over the text if they ascend.
class LineCounter {
public:
    explicit LineCounter(std::string_view text) : text(text) {}

    size_t lineOf(ptrdiff_t offset) {
        const size_t wanted =
            std::min(static_cast<size_t>(std::max<ptrdiff_t>(offset, 0)), text.size());
        line +=
            static_cast<size_t>(std::count(text.begin() + static_cast<ptrdiff_t>(position),
                                           text.begin() + static_cast<ptrdiff_t>(wanted), '\n'));
        position = wanted;
        return line;
    }

private:
    std::string_view text;
    size_t position = 0;
    size_t line = 1;
};

std::string readWhole(const std::string& path) {
    const auto fail = [&] { return ApnFileError(path + ": " + std::strerror(errno)); };
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rbe"),
                                                               std::fclose);
    if (!file) {
        throw fail();
    }
    std::string text;
    char buffer[65536];
    while (const size_t count = std::fread(buffer, 1, sizeof buffer, file.get())) {
        text.append(buffer, count);
    }
    if (std::ferror(file.get())) {
        throw fail();
    }
    return text;
}

}  // namespace

size_t ApnFile::entryCount() const {
    size_t count = 0;
    for (const Operator& one : operators) {
        count += one.entries.size();
    }
    return count;
}

const Operator* ApnFile::find(std::string_view plmn) const {
    const auto found = std::find_if(operators.begin(), operators.end(),
                                    [&](const Operator& one) { return one.plmn == plmn; });
    return found == operators.end() ? nullptr : &*found;
}

ApnFile readApnFile(const std::string& path) { return parseApnFile(path, readWhole(path)); }

ApnFile parseApnFile(const std::string& path, std::string_view text) {
    const auto at = [&](size_t line) { return path + ":" + std::to_string(line) + ": "; };
    pugi::xml_document document;
    // Any other encoding would be converted first, and the offsets would not be the file's.
    const pugi::xml_parse_result parsed =
        document.load_buffer(text.data(), text.size(), pugi::parse_default, pugi::encoding_utf8);
    if (!parsed) {
        throw ApnFileError(at(LineCounter(text).lineOf(parsed.offset)) + parsed.description());
    }
    LineCounter lines(text);
    const pugi::xml_node root = document.document_element();
    if (std::string_view(root.name()) != "apns") {
        throw ApnFileError(at(lines.lineOf(root.offset_debug())) + "the root element is " +
                           quoted(root.name()) + ", not 'apns'");
    }

    ApnFile file;
    std::unordered_map<std::string, size_t> byPlmn;
    for (const pugi::xml_node& node : root.children("apn")) {
        const size_t line = lines.lineOf(node.offset_debug());
        std::vector<std::string> problems;
        const Draft draft = readEntry(node, problems);
        for (const std::string& problem : problems) {
            file.problems.push_back(at(line) + problem);
        }
        if (problems.empty()) {
            const auto [place, isNew] =
                byPlmn.try_emplace(draft.mcc + draft.mnc, file.operators.size());
            if (isNew) {
                file.operators.push_back({place->first, {}});
            }
            file.operators[place->second].entries.push_back({line, draft.params});
        }
    }
    return file;
}

}  // namespace kiv::kivctl
