#include "Journal.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <nlohmann/json.hpp>
#include <utility>

#include "Encoding.h"
#include "Settings.h"
#include "WdsService.h"

namespace kiv::emulator {
namespace {

using Json = nlohmann::ordered_json;

template <class Record>
Record read(std::span<const std::byte> bytes) {
    Record record;
    std::memset(&record, 0, sizeof(record));
    std::copy_n(bytes.begin(), std::min(bytes.size(), sizeof(record)),
                reinterpret_cast<std::byte*>(&record));
    return record;
}

Json settingsOf(const Settings& settings, bool showSecrets) {
    Json members = Json::object();
    for (const Setting& setting : allSettings()) {
        if (!setting.isPresent(settings)) {
            continue;
        }
        Json& member = members[std::string(setting.name)];
        if (setting.isSecret && !showSecrets) {
            member = "***";
        } else if (setting.isText) {
            member = setting.shown(settings);
        } else {
            member = toNumber(setting.value(settings));
        }
    }
    return members;
}

Json profileOf(int64_t type, uint64_t index) { return {{"type", type}, {"index", index}}; }

Json identifierOf(const wds_profile_identifier_type_v01& profile) {
    return profileOf(profile.profile_type, profile.profile_index);
}

Json requestMembers(const Request& request, bool showSecrets) {
    const std::span<const std::byte> bytes = request.bytes;
    Json members = Json::object();
    switch (request.messageId) {
        case RAV_WDS_BIND_SUBSCRIPTION_REQ_V01:
            members["subscription"] = read<wds_bind_subscription_req_msg_v01>(bytes).subscription;
            break;
        case RAV_WDS_INDICATION_REGISTER_REQ_V01: {
            const auto record = read<wds_indication_register_req_msg_v01>(bytes);
            if (record.report_profile_changes_valid) {
                members["report_profile_changes"] = record.report_profile_changes;
            }
            break;
        }
        case RAV_WDS_CONFIGURE_PROFILE_EVENT_LIST_REQ_V01: {
            const auto record = read<wds_configure_profile_event_list_req_msg_v01>(bytes);
            const uint32_t count = record.profile_event_valid ? record.profile_event_len : 0;
            for (uint32_t i = 0; i < std::min<uint32_t>(count, WDS_PROFILE_LIST_MAX_V01); ++i) {
                members["profile_event"].push_back(identifierOf(record.profile_event[i]));
            }
            if (record.report_all_changes_valid) {
                members["report_all_changes"] = record.report_all_changes;
            }
            break;
        }
        case RAV_WDS_CREATE_PROFILE_REQ_V01: {
            const auto record = read<wds_create_profile_req_msg_v01>(bytes);
            members["profile_type"] = static_cast<int>(record.profile_type);
            if (record.persistent_valid) {
                members["persistent"] = record.persistent;
            }
            members["settings"] = settingsOf(record.settings, showSecrets);
            break;
        }
        case RAV_WDS_MODIFY_PROFILE_SETTINGS_REQ_V01: {
            const auto record = read<wds_modify_profile_settings_req_msg_v01>(bytes);
            members["profile"] = identifierOf(record.profile);
            members["settings"] = settingsOf(record.settings, showSecrets);
            break;
        }
        case RAV_WDS_DELETE_PROFILE_REQ_V01:
        case RAV_WDS_GET_PROFILE_SETTINGS_REQ_V01:
            members["profile"] = identifierOf(read<wds_profile_identifier_type_v01>(bytes));
            break;
        case RAV_WDS_GET_PROFILE_LIST_REQ_V01: {
            const auto record = read<wds_get_profile_list_req_msg_v01>(bytes);
            if (record.profile_type_valid) {
                members["profile_type"] = static_cast<int>(record.profile_type);
            }
            break;
        }
        default:
            break;
    }
    return members;
}

Json responseMembers(unsigned messageId, std::span<const std::byte> bytes, bool showSecrets) {
    Json members = Json::object();
    if (messageId == RAV_WDS_CREATE_PROFILE_REQ_V01) {
        members["profile"] = identifierOf(read<wds_create_profile_resp_msg_v01>(bytes).profile);
    } else if (messageId == RAV_WDS_GET_PROFILE_SETTINGS_REQ_V01) {
        const auto record = read<wds_get_profile_settings_resp_msg_v01>(bytes);
        if (record.persistent_valid) {
            members["persistent"] = record.persistent;
        }
        members["settings"] = settingsOf(record.settings, showSecrets);
    } else if (messageId == RAV_WDS_GET_PROFILE_LIST_REQ_V01) {
        const auto record = read<wds_get_profile_list_resp_msg_v01>(bytes);
        members["profile_list_len"] = record.profile_list_len;
        const auto count = std::min<uint32_t>(record.profile_list_len, WDS_PROFILE_LIST_MAX_V01);
        for (uint32_t i = 0; i < count; ++i) {
            const auto& entry = record.profile_list[i];
            Json one = profileOf(entry.profile_type, entry.profile_index);
            one["name"] = toUtf8(std::as_bytes(std::span(entry.profile_name)));
            members["profile_list"].push_back(std::move(one));
        }
    }
    return members;
}

}  // namespace

bool Journal::open(const std::string& path, bool withSecrets, TimePoint now) {
    close();
    // Only the owner may read it, as passwords may get into it.
    const int fd =
        ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, S_IRUSR | S_IWUSR);
    file = fd < 0 ? nullptr : fdopen(fd, "w");
    showSecrets = withSecrets;
    isWhole = true;
    start = now;
    opened = file != nullptr;
    return opened;
}

bool Journal::close() {
    opened = false;
    return file == nullptr || (std::fclose(std::exchange(file, nullptr)) == 0 && isWhole);
}

template <class Fill>
void Journal::add(TimePoint now, const char* direction, unsigned client, Fill fill) {
    if (!opened) {
        return;
    }
    Json line;
    line["us"] = std::chrono::duration_cast<std::chrono::microseconds>(now - start).count();
    line["direction"] = direction;
    if (client != 0) {
        line["client"] = client;
    }
    fill(line);
    const std::string text = line.dump() + '\n';
    isWhole = std::fwrite(text.data(), 1, text.size(), file) == text.size() && isWhole;
}

void Journal::addRequest(TimePoint now, unsigned client, const Request& request) {
    add(now, kRequest, client, [&](Json& line) {
        line["message"] = messageName(request.messageId);
        line["id"] = request.messageId;
        line["members"] = requestMembers(request, showSecrets);
    });
}

void Journal::addResponse(TimePoint now, unsigned client, const Request& request,
                          std::span<const std::byte> response) {
    add(now, kResponse, client, [&](Json& line) {
        line["message"] = messageName(request.messageId);
        line["id"] = request.messageId;
        line["transport"] = request.transportResult;
        if (request.transportResult == RAV_CLIENT_OK) {
            line["result"] = request.result;
            line["error"] = request.error;
            if (request.result == WDS_RESULT_SUCCESS_V01) {
                line["members"] = responseMembers(request.messageId, response, showSecrets);
            }
            // Passwords are in these alone, and a lie may put them anywhere.
            if (showSecrets || request.messageId != RAV_WDS_GET_PROFILE_SETTINGS_REQ_V01) {
                line["bytes"] = packBytes(response);
            }
        }
    });
}

void Journal::addIndication(TimePoint now, unsigned client, unsigned messageId,
                            std::span<const std::byte> bytes) {
    add(now, kIndication, client, [&](Json& line) {
        line["message"] = messageName(messageId);
        line["id"] = messageId;
        wds_profile_changed_ind_msg_v01 message;
        if (messageId == RAV_WDS_PROFILE_CHANGED_IND_V01 && decodeChange(bytes, message) &&
            message.profile_changed_valid) {
            const auto& change = message.profile_changed;
            Json members = profileOf(change.profile_type, change.profile_index);
            members["change"] = static_cast<int>(change.change);
            line["members"] = std::move(members);
        }
        line["bytes"] = packBytes(bytes);
    });
}

void Journal::addEvent(TimePoint now, const char* direction, unsigned client,
                       const std::string& what) {
    add(now, direction, client, [&](Json& line) { line["what"] = what; });
}

}  // namespace kiv::emulator
