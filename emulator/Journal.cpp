#include "Journal.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "Encoding.h"
#include "Json.h"
#include "Settings.h"
#include "WdsService.h"

namespace kiv::emulator {
namespace {

/// The bytes are as long as the record, or the request would not have been taken.
template <class Record>
Record read(std::span<const std::byte> bytes) {
    Record record;
    std::memcpy(&record, bytes.data(), sizeof(record));
    return record;
}

JsonText settingsOf(const Settings& settings, bool showSecrets) {
    JsonText members = JsonText::object();
    for (const Setting& setting : allSettings()) {
        if (!setting.isPresent(settings)) {
            continue;
        }
        if (setting.isSecret && !showSecrets) {
            members.add(setting.name, "***");
        } else if (setting.isText) {
            members.add(setting.name, setting.shown(settings));
        } else {
            members.add(setting.name, toNumber(setting.value(settings)));
        }
    }
    return members;
}

JsonText profileOf(int32_t type, uint32_t index) {
    return JsonText::object().add("type", type).add("index", index);
}

JsonText identifierOf(const wds_profile_identifier_type_v01& profile) {
    return profileOf(profile.profile_type, profile.profile_index);
}

void addOptional(JsonText& members, const char* name, uint8_t valid, int64_t value) {
    if (valid) {
        members.add(name, value);
    }
}

void addEvents(JsonText& members, const wds_configure_profile_event_list_req_msg_v01& record) {
    const uint32_t length = record.profile_event_valid ? record.profile_event_len : 0;
    const auto count = std::min<uint32_t>(length, WDS_PROFILE_LIST_MAX_V01);
    JsonText events = JsonText::list();
    for (uint32_t i = 0; i < count; ++i) {
        events.add(identifierOf(record.profile_event[i]));
    }
    if (count > 0) {
        members.add("profile_event", events);
    }
    addOptional(members, "report_all_changes", record.report_all_changes_valid,
                record.report_all_changes);
}

JsonText membersOf(const Request& request, bool showSecrets) {
    const std::span<const std::byte> bytes = request.bytes;
    JsonText members = JsonText::object();
    switch (request.messageId) {
        case RAV_WDS_BIND_SUBSCRIPTION_REQ_V01:
            members.add("subscription",
                        read<wds_bind_subscription_req_msg_v01>(bytes).subscription);
            break;
        case RAV_WDS_INDICATION_REGISTER_REQ_V01: {
            const auto record = read<wds_indication_register_req_msg_v01>(bytes);
            addOptional(members, "report_profile_changes", record.report_profile_changes_valid,
                        record.report_profile_changes);
            break;
        }
        case RAV_WDS_CONFIGURE_PROFILE_EVENT_LIST_REQ_V01:
            addEvents(members, read<wds_configure_profile_event_list_req_msg_v01>(bytes));
            break;
        case RAV_WDS_CREATE_PROFILE_REQ_V01: {
            const auto record = read<wds_create_profile_req_msg_v01>(bytes);
            members.add("profile_type", static_cast<int32_t>(record.profile_type));
            addOptional(members, "persistent", record.persistent_valid, record.persistent);
            members.add("settings", settingsOf(record.settings, showSecrets));
            break;
        }
        case RAV_WDS_MODIFY_PROFILE_SETTINGS_REQ_V01: {
            const auto record = read<wds_modify_profile_settings_req_msg_v01>(bytes);
            members.add("profile", identifierOf(record.profile));
            members.add("settings", settingsOf(record.settings, showSecrets));
            break;
        }
        case RAV_WDS_DELETE_PROFILE_REQ_V01:
        case RAV_WDS_GET_PROFILE_SETTINGS_REQ_V01:
            members.add("profile", identifierOf(read<wds_profile_identifier_type_v01>(bytes)));
            break;
        case RAV_WDS_GET_PROFILE_LIST_REQ_V01: {
            const auto record = read<wds_get_profile_list_req_msg_v01>(bytes);
            addOptional(members, "profile_type", record.profile_type_valid, record.profile_type);
            break;
        }
        default:
            break;
    }
    return members;
}

JsonText answerMembers(unsigned messageId, std::span<const std::byte> bytes, bool showSecrets) {
    JsonText members = JsonText::object();
    if (messageId == RAV_WDS_CREATE_PROFILE_REQ_V01) {
        members.add("profile", identifierOf(read<wds_create_profile_resp_msg_v01>(bytes).profile));
    } else if (messageId == RAV_WDS_GET_PROFILE_SETTINGS_REQ_V01) {
        const auto record = read<wds_get_profile_settings_resp_msg_v01>(bytes);
        addOptional(members, "persistent", record.persistent_valid, record.persistent);
        members.add("settings", settingsOf(record.settings, showSecrets));
    } else if (messageId == RAV_WDS_GET_PROFILE_LIST_REQ_V01) {
        const auto record = read<wds_get_profile_list_resp_msg_v01>(bytes);
        const auto count = std::min<uint32_t>(record.profile_list_len, WDS_PROFILE_LIST_MAX_V01);
        JsonText list = JsonText::list();
        for (uint32_t i = 0; i < count; ++i) {
            const auto& entry = record.profile_list[i];
            list.add(profileOf(entry.profile_type, entry.profile_index)
                         .add("name", toUtf8(std::as_bytes(std::span(entry.profile_name)))));
        }
        members.add("profile_list_len", record.profile_list_len);
        if (count > 0) {
            members.add("profile_list", list);
        }
    }
    return members;
}

}  // namespace

bool Journal::open(const std::string& path, bool withSecrets) {
    close();
    // Only the owner may read it, as passwords may get into it.
    const int fd =
        ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, S_IRUSR | S_IWUSR);
    file = fd < 0 ? nullptr : fdopen(fd, "w");
    showSecrets = withSecrets;
    isWhole = true;
    start = clock.timeNow();
    opened = file != nullptr;
    return opened;
}

bool Journal::close() {
    opened = false;
    return file == nullptr || (std::fclose(std::exchange(file, nullptr)) == 0 && isWhole);
}

void Journal::addRequest(unsigned client, const Request& request) {
    if (!opened) {
        return;
    }
    write(lineOf(kRequest, client)
              .add("message", messageName(request.messageId))
              .add("id", request.messageId)
              .add("members", membersOf(request, showSecrets)));
}

void Journal::addResponse(unsigned client, const Request& request,
                          std::span<const std::byte> response) {
    if (!opened) {
        return;
    }
    const unsigned id = request.messageId;
    JsonText line = lineOf(kResponse, client)
                        .add("message", messageName(id))
                        .add("id", id)
                        .add("transport", request.transportResult);
    if (request.transportResult == RAV_CLIENT_OK) {
        line.add("result", request.result).add("error", request.error);
        if (request.result == WDS_RESULT_SUCCESS_V01) {
            line.add("members", answerMembers(id, response, showSecrets));
        }
        // Passwords are in these alone, and a lie may put them anywhere.
        if (showSecrets || id != RAV_WDS_GET_PROFILE_SETTINGS_REQ_V01) {
            line.add("bytes", packBytes(response));
        }
    }
    write(line);
}

void Journal::addIndication(unsigned client, unsigned messageId, std::span<const std::byte> bytes) {
    if (!opened) {
        return;
    }
    JsonText line =
        lineOf(kIndication, client).add("message", messageName(messageId)).add("id", messageId);
    wds_profile_changed_ind_msg_v01 message;
    if (messageId == RAV_WDS_PROFILE_CHANGED_IND_V01 && decodeChange(bytes, message) &&
        message.profile_changed_valid) {
        const auto& change = message.profile_changed;
        line.add("members", profileOf(change.profile_type, change.profile_index)
                                .add("change", static_cast<int32_t>(change.change)));
    }
    write(line.add("bytes", packBytes(bytes)));
}

void Journal::addEvent(const char* direction, unsigned client, const std::string& what) {
    if (!opened) {
        return;
    }
    write(lineOf(direction, client).add("what", what));
}

JsonText Journal::lineOf(const char* direction, unsigned client) const {
    const auto passed =
        std::chrono::duration_cast<std::chrono::microseconds>(clock.timeNow() - start);
    JsonText line = JsonText::object().add("us", passed.count()).add("direction", direction);
    return client == 0 ? line : line.add("client", client);
}

void Journal::write(const JsonText& line) {
    const std::string text = line.text() + '\n';
    isWhole = std::fwrite(text.data(), 1, text.size(), file) == text.size() && isWhole;
}

}  // namespace kiv::emulator
