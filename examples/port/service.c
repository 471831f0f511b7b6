/* The wireless data service: two tables of profiles in memory, and what each request does. */
#include <stddef.h>
#include <string.h>

#include "port.h"

struct profile {
    int exists;
    int persistent;
    wds_profile_settings_type_v01 settings;
};

/* As many as one list can name; index 0 is not used. */
static struct profile table[2][WDS_PROFILE_LIST_MAX_V01 + 1];

enum { BOTH = 2 };

/* Every setting: where its flag and its value are, and which technology has it. */
static const struct {
    size_t flag, place, size;
    unsigned technology;
} members[] = {
#define MEMBER(technology, name)                                          \
    {                                                                     \
        offsetof(wds_profile_settings_type_v01, name##_valid),            \
            offsetof(wds_profile_settings_type_v01, name),                \
            sizeof(((wds_profile_settings_type_v01*)0)->name), technology \
    }
    MEMBER(BOTH, apn_type_mask),
    MEMBER(BOTH, clat_enabled),
    MEMBER(WDS_PROFILE_TYPE_3GPP_V01, profile_name),
    MEMBER(WDS_PROFILE_TYPE_3GPP_V01, apn_name),
    MEMBER(WDS_PROFILE_TYPE_3GPP_V01, user_name),
    MEMBER(WDS_PROFILE_TYPE_3GPP_V01, password),
    MEMBER(WDS_PROFILE_TYPE_3GPP_V01, pdp_type),
    MEMBER(WDS_PROFILE_TYPE_3GPP_V01, override_home_pdp_type),
    MEMBER(WDS_PROFILE_TYPE_3GPP_V01, lte_roaming_pdp_type),
    MEMBER(WDS_PROFILE_TYPE_3GPP_V01, umts_roaming_pdp_type),
    MEMBER(WDS_PROFILE_TYPE_3GPP_V01, max_pdn_conn_per_block),
    MEMBER(WDS_PROFILE_TYPE_3GPP_V01, max_pdn_conn_timer),
    MEMBER(WDS_PROFILE_TYPE_3GPP_V01, pdn_req_wait_interval),
    MEMBER(WDS_PROFILE_TYPE_3GPP_V01, support_emergency_calls),
    MEMBER(WDS_PROFILE_TYPE_3GPP_V01, apn_disabled),
    MEMBER(WDS_PROFILE_TYPE_3GPP_V01, auth_preference),
    MEMBER(WDS_PROFILE_TYPE_3GPP_V01, apn_class),
    MEMBER(WDS_PROFILE_TYPE_3GPP2_V01, apn_string_3gpp2),
    MEMBER(WDS_PROFILE_TYPE_3GPP2_V01, user_id_3gpp2),
    MEMBER(WDS_PROFILE_TYPE_3GPP2_V01, password_3gpp2),
    MEMBER(WDS_PROFILE_TYPE_3GPP2_V01, pdn_level_user_id_3gpp2),
    MEMBER(WDS_PROFILE_TYPE_3GPP2_V01, pdn_level_password_3gpp2),
    MEMBER(WDS_PROFILE_TYPE_3GPP2_V01, pdn_type_3gpp2),
    MEMBER(WDS_PROFILE_TYPE_3GPP2_V01, auth_protocol_3gpp2),
    MEMBER(WDS_PROFILE_TYPE_3GPP2_V01, pdn_level_auth_protocol_3gpp2),
    MEMBER(WDS_PROFILE_TYPE_3GPP2_V01, apn_class_3gpp2),
#undef MEMBER
};

static struct profile* find(wds_profile_identifier_type_v01 id) {
    struct profile* profile;
    if ((unsigned)id.profile_type >= BOTH) {
        return NULL;
    }
    profile = &table[id.profile_type][id.profile_index];
    return profile->exists ? profile : NULL;
}

static void take_settings(struct profile* profile, unsigned technology,
                          const wds_profile_settings_type_v01* settings) {
    const char* const from = (const char*)settings;
    char* const to = (char*)&profile->settings;
    size_t i;
    for (i = 0; i < sizeof(members) / sizeof(members[0]); ++i) {
        if (from[members[i].flag] != 0 &&
            (members[i].technology == BOTH || members[i].technology == technology)) {
            to[members[i].flag] = 1;
            memcpy(to + members[i].place, from + members[i].place, members[i].size);
        }
    }
}

static wds_response_type_v01 refuse(uint32_t error) {
    const wds_response_type_v01 resp = {WDS_RESULT_FAILURE_V01, error};
    return resp;
}

static void create(const wds_create_profile_req_msg_v01* req,
                   wds_create_profile_resp_msg_v01* resp) {
    const unsigned technology = (unsigned)req->profile_type;
    unsigned index = 1;
    if (technology >= BOTH) {
        resp->resp = refuse(WDS_ERR_INVALID_PROFILE_TYPE_V01);
        return;
    }
    while (index <= WDS_PROFILE_LIST_MAX_V01 && table[technology][index].exists) {
        ++index;
    }
    if (index > WDS_PROFILE_LIST_MAX_V01) {
        resp->resp = refuse(WDS_ERR_PROFILE_TABLE_FULL_V01);
        return;
    }
    memset(&table[technology][index], 0, sizeof(table[technology][index]));
    table[technology][index].exists = 1;
    table[technology][index].persistent = req->persistent_valid && req->persistent;
    take_settings(&table[technology][index], technology, &req->settings);
    resp->profile.profile_type = req->profile_type;
    resp->profile.profile_index = (uint8_t)index;
    /* Both, and in this order: the library waits for the two. */
    port_report(req->profile_type, (uint8_t)index, WDS_PROFILE_CHANGE_CREATED_V01);
    port_report(req->profile_type, (uint8_t)index, WDS_PROFILE_CHANGE_MODIFIED_V01);
}

static void modify(const wds_modify_profile_settings_req_msg_v01* req,
                   wds_modify_profile_settings_resp_msg_v01* resp) {
    struct profile* const profile = find(req->profile);
    if (profile == NULL) {
        resp->resp = refuse(WDS_ERR_UNKNOWN_PROFILE_V01);
        return;
    }
    take_settings(profile, (unsigned)req->profile.profile_type, &req->settings);
    port_report(req->profile.profile_type, req->profile.profile_index,
                WDS_PROFILE_CHANGE_MODIFIED_V01);
}

static void delete (const wds_delete_profile_req_msg_v01* req,
                    wds_delete_profile_resp_msg_v01* resp) {
    struct profile* const profile = find(req->profile);
    if (profile == NULL) {
        resp->resp = refuse(WDS_ERR_UNKNOWN_PROFILE_V01);
        return;
    }
    profile->exists = 0;
    port_report(req->profile.profile_type, req->profile.profile_index,
                WDS_PROFILE_CHANGE_DELETED_V01);
}

static void get(const wds_get_profile_settings_req_msg_v01* req,
                wds_get_profile_settings_resp_msg_v01* resp) {
    const struct profile* const profile = find(req->profile);
    if (profile == NULL) {
        resp->resp = refuse(WDS_ERR_UNKNOWN_PROFILE_V01);
        return;
    }
    resp->persistent_valid = 1;
    resp->persistent = (uint8_t)profile->persistent;
    resp->settings = profile->settings;
    /* A 3GPP2 profile's passwords are not given out. */
    resp->settings.password_3gpp2_valid = resp->settings.pdn_level_password_3gpp2_valid = 0;
}

static void list(const wds_get_profile_list_req_msg_v01* req,
                 wds_get_profile_list_resp_msg_v01* resp) {
    const unsigned technology = (unsigned)req->profile_type;
    unsigned index;
    if (!req->profile_type_valid || technology >= BOTH) {
        resp->resp = refuse(WDS_ERR_INVALID_PROFILE_TYPE_V01);
        return;
    }
    for (index = 1; index <= WDS_PROFILE_LIST_MAX_V01; ++index) {
        const struct profile* const profile = &table[technology][index];
        if (profile->exists) {
            wds_profile_info_type_v01* const info = &resp->profile_list[resp->profile_list_len++];
            info->profile_type = req->profile_type;
            info->profile_index = (uint8_t)index;
            memcpy(info->profile_name, profile->settings.profile_name, sizeof(info->profile_name));
        }
    }
}

static void wish_for_changes(port_session* session,
                             const wds_indication_register_req_msg_v01* req) {
    if (req->report_profile_changes_valid) {
        session->wants_changes = req->report_profile_changes;
    }
}

static void wish_for_profiles(port_session* session,
                              const wds_configure_profile_event_list_req_msg_v01* req) {
    session->wants_all_profiles = req->profile_event_valid && req->profile_event_len > 0 &&
                                  req->profile_event[0].profile_type == WDS_PROFILE_TYPE_ALL_V01 &&
                                  req->profile_event[0].profile_index == 255;
}

int port_answer(port_session* session, unsigned int msg_id, const void* req, unsigned int req_len,
                void* resp, unsigned int resp_len) {
    /* Checks the lengths, and begins the response with success and nothing else. */
#define REQUEST(id, name, answer, action)                      \
    case id:                                                   \
        if (req_len != sizeof(wds_##name##_req_msg_v01) ||     \
            resp_len != sizeof(wds_##answer##_resp_msg_v01)) { \
            return RAV_CLIENT_ERR_MALFORMED;                   \
        }                                                      \
        memset(resp, 0, resp_len);                             \
        action;                                                \
        return RAV_CLIENT_OK
    switch (msg_id) {
        REQUEST(RAV_WDS_BIND_SUBSCRIPTION_REQ_V01, bind_subscription, common,
                session->is_bound = 1);
        REQUEST(RAV_WDS_INDICATION_REGISTER_REQ_V01, indication_register, common,
                wish_for_changes(session, req));
        REQUEST(RAV_WDS_CONFIGURE_PROFILE_EVENT_LIST_REQ_V01, configure_profile_event_list, common,
                wish_for_profiles(session, req));
        REQUEST(RAV_WDS_CREATE_PROFILE_REQ_V01, create_profile, create_profile, create(req, resp));
        REQUEST(RAV_WDS_MODIFY_PROFILE_SETTINGS_REQ_V01, modify_profile_settings,
                modify_profile_settings, modify(req, resp));
        REQUEST(RAV_WDS_DELETE_PROFILE_REQ_V01, delete_profile, delete_profile, delete (req, resp));
        REQUEST(RAV_WDS_GET_PROFILE_SETTINGS_REQ_V01, get_profile_settings, get_profile_settings,
                get(req, resp));
        REQUEST(RAV_WDS_GET_PROFILE_LIST_REQ_V01, get_profile_list, get_profile_list,
                list(req, resp));
    }
#undef REQUEST
    return RAV_CLIENT_ERR_INVALID;
}

void port_disable_apn(wds_profile_type_enum_v01 type, uint8_t index) {
    const wds_profile_identifier_type_v01 id = {type, index};
    struct profile* profile;
    port_lock();
    profile = find(id);
    if (profile != NULL) {
        profile->settings.apn_disabled_valid = profile->settings.apn_disabled = 1;
        port_report(type, index, WDS_PROFILE_CHANGE_MODIFIED_V01);
    }
    port_unlock();
}
