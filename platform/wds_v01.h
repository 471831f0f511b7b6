/*
 * The records of the modem's wireless data service, version 1.241: message ids, enumerations and
 * the plain structures of the requests, responses and indications.
 *
 * Every structure has a fixed length and is passed whole. An optional member is preceded by a
 * one-byte flag of the same name with _valid; the member counts only where that flag is not 0.
 * Texts end with a zero byte; a reader must not rely on it. Members named reserved are zero when
 * sent and ignored when received.
 *
 * Porting contract: a device whose service lays these messages out differently converts in its
 * own implementation of rav_client_send_msg_sync and rav_client_message_decode.
 */
#ifndef PLATFORM_WDS_V01_H
#define PLATFORM_WDS_V01_H

#include <stddef.h>
#include <stdint.h>

#include "rav_client.h"

#ifdef __cplusplus
extern "C" {
#endif

#define WDS_SERVICE_MAJOR_VERSION_V01 1
#define WDS_SERVICE_MINOR_VERSION_V01 241
#define WDS_SERVICE_LIBRARY_VERSION_V01 6

/* The service object of the wireless data service, or null if this version is not supplied. */
rav_service_object_type wds_get_service_object_internal_v01(int32_t major, int32_t minor,
                                                            int32_t library_version);

/* Message ids. */
enum {
    RAV_WDS_INDICATION_REGISTER_REQ_V01 = 0x0003,
    RAV_WDS_CREATE_PROFILE_REQ_V01 = 0x0027,
    RAV_WDS_MODIFY_PROFILE_SETTINGS_REQ_V01 = 0x0028,
    RAV_WDS_DELETE_PROFILE_REQ_V01 = 0x0029,
    RAV_WDS_GET_PROFILE_LIST_REQ_V01 = 0x002A,
    RAV_WDS_GET_PROFILE_SETTINGS_REQ_V01 = 0x002B,
    RAV_WDS_CONFIGURE_PROFILE_EVENT_LIST_REQ_V01 = 0x00A7,
    RAV_WDS_PROFILE_CHANGED_IND_V01 = 0x00A8,
    RAV_WDS_BIND_SUBSCRIPTION_REQ_V01 = 0x00AF
};

/* Sizes of texts, with their terminating zero, and of lists. */
#define WDS_PROFILE_NAME_SIZE_V01 51
#define WDS_APN_NAME_SIZE_V01 151 /* 3GPP TS 23.003 allows an APN of at most 100 octets */
#define WDS_USER_NAME_SIZE_V01 128
#define WDS_PASSWORD_SIZE_V01 128
#define WDS_PROFILE_LIST_MAX_V01 255

/* Result field of every response. */
enum { WDS_RESULT_SUCCESS_V01 = 0, WDS_RESULT_FAILURE_V01 = 1 };

/* Error codes of a response whose result is not success. */
enum {
    WDS_ERR_NONE_V01 = 0,
    WDS_ERR_MALFORMED_MESSAGE_V01 = 1,
    WDS_ERR_NO_MEMORY_V01 = 2,
    WDS_ERR_INTERNAL_V01 = 3,
    WDS_ERR_UNKNOWN_PROFILE_V01 = 4,
    WDS_ERR_PROFILE_TABLE_FULL_V01 = 5,
    WDS_ERR_INVALID_PROFILE_TYPE_V01 = 6,
    WDS_ERR_UNKNOWN_MESSAGE_V01 = 7
};

/*
 * Enumerations. Their _MIN_VALUE and _MAX_VALUE are never sent; they make every 32-bit value that
 * a modem may answer a valid value of the type, so that it can be stored and tested.
 */
typedef enum {
    WDS_PROFILE_TYPE_3GPP_V01 = 0,
    WDS_PROFILE_TYPE_3GPP2_V01 = 1,
    WDS_PROFILE_TYPE_ALL_V01 = 255, /* in the profile-event configuration only */
    WDS_PROFILE_TYPE_MIN_VALUE_V01 = INT32_MIN,
    WDS_PROFILE_TYPE_MAX_VALUE_V01 = INT32_MAX
} wds_profile_type_enum_v01;

/* PDP type of a 3GPP profile; 1 is not used. */
typedef enum {
    WDS_PDP_TYPE_IPV4_V01 = 0,
    WDS_PDP_TYPE_IPV6_V01 = 2,
    WDS_PDP_TYPE_IPV4V6_V01 = 3,
    WDS_PDP_TYPE_MIN_VALUE_V01 = INT32_MIN,
    WDS_PDP_TYPE_MAX_VALUE_V01 = INT32_MAX
} wds_pdp_type_enum_v01;

/* PDP type used when roaming, or that overrides the home PDP type. */
typedef enum {
    WDS_COMMON_PDP_TYPE_IPV4_V01 = 0,
    WDS_COMMON_PDP_TYPE_IPV6_V01 = 1,
    WDS_COMMON_PDP_TYPE_IPV4V6_V01 = 2,
    WDS_COMMON_PDP_TYPE_NONE_V01 = 255, /* no such type is set */
    WDS_COMMON_PDP_TYPE_MIN_VALUE_V01 = INT32_MIN,
    WDS_COMMON_PDP_TYPE_MAX_VALUE_V01 = INT32_MAX
} wds_common_pdp_type_enum_v01;

/* PDN type of a 3GPP2 profile. */
typedef enum {
    WDS_PROFILE_PDN_TYPE_IPV4_V01 = 0,
    WDS_PROFILE_PDN_TYPE_IPV6_V01 = 1,
    WDS_PROFILE_PDN_TYPE_IPV4V6_V01 = 2,
    WDS_PROFILE_PDN_TYPE_UNSPECIFIED_V01 = 3,
    WDS_PROFILE_PDN_TYPE_MIN_VALUE_V01 = INT32_MIN,
    WDS_PROFILE_PDN_TYPE_MAX_VALUE_V01 = INT32_MAX
} wds_profile_pdn_type_enum_v01;

/* Authentication protocol of a 3GPP2 profile. */
typedef enum {
    WDS_PROFILE_AUTH_PROTOCOL_NONE_V01 = 0,
    WDS_PROFILE_AUTH_PROTOCOL_PAP_V01 = 1,
    WDS_PROFILE_AUTH_PROTOCOL_CHAP_V01 = 2,
    WDS_PROFILE_AUTH_PROTOCOL_PAP_CHAP_V01 = 3,
    WDS_PROFILE_AUTH_PROTOCOL_MIN_VALUE_V01 = INT32_MIN,
    WDS_PROFILE_AUTH_PROTOCOL_MAX_VALUE_V01 = INT32_MAX
} wds_profile_auth_protocol_enum_v01;

/* The same, at the level of the PDN. */
typedef enum {
    WDS_PDN_LEVEL_AUTH_PROTOCOL_NONE_V01 = 0,
    WDS_PDN_LEVEL_AUTH_PROTOCOL_PAP_V01 = 1,
    WDS_PDN_LEVEL_AUTH_PROTOCOL_CHAP_V01 = 2,
    WDS_PDN_LEVEL_AUTH_PROTOCOL_PAP_CHAP_V01 = 3,
    WDS_PDN_LEVEL_AUTH_PROTOCOL_MIN_VALUE_V01 = INT32_MIN,
    WDS_PDN_LEVEL_AUTH_PROTOCOL_MAX_VALUE_V01 = INT32_MAX
} wds_pdn_level_auth_protocol_enum_v01;

/* Authentication preference of a 3GPP profile: bit 0 PAP, bit 1 CHAP. */
typedef uint8_t wds_auth_pref_mask_v01;
#define WDS_AUTH_PREF_PAP_V01 0x01
#define WDS_AUTH_PREF_CHAP_V01 0x02

/* The common APN type mask, 64 bits wide. */
#define WDS_APN_TYPE_MASK_DEFAULT_V01 UINT64_C(0x001)
#define WDS_APN_TYPE_MASK_IMS_V01 UINT64_C(0x002)
#define WDS_APN_TYPE_MASK_MMS_V01 UINT64_C(0x004)
#define WDS_APN_TYPE_MASK_DUN_V01 UINT64_C(0x008)
#define WDS_APN_TYPE_MASK_SUPL_V01 UINT64_C(0x010)
#define WDS_APN_TYPE_MASK_HIPRI_V01 UINT64_C(0x020)
#define WDS_APN_TYPE_MASK_FOTA_V01 UINT64_C(0x040)
#define WDS_APN_TYPE_MASK_CBS_V01 UINT64_C(0x080)
#define WDS_APN_TYPE_MASK_IA_V01 UINT64_C(0x100)
#define WDS_APN_TYPE_MASK_EMERGENCY_V01 UINT64_C(0x200)
#define WDS_APN_TYPE_MASK_XCAP_V01 UINT64_C(0x400)
#define WDS_APN_TYPE_MASK_MCX_V01 UINT64_C(0x800)

/* What happened to a profile, in the profile-changed indication. */
typedef enum {
    WDS_PROFILE_CHANGE_CREATED_V01 = 1,
    WDS_PROFILE_CHANGE_DELETED_V01 = 2,
    WDS_PROFILE_CHANGE_MODIFIED_V01 = 3,
    WDS_PROFILE_CHANGE_SUBSCRIPTION_V01 = 4,
    WDS_PROFILE_CHANGE_READY_V01 = 5,
    WDS_PROFILE_CHANGE_MIN_VALUE_V01 = INT32_MIN,
    WDS_PROFILE_CHANGE_MAX_VALUE_V01 = INT32_MAX
} wds_profile_change_enum_v01;

/* Names one profile. */
typedef struct {
    wds_profile_type_enum_v01 profile_type;
    uint8_t profile_index;
} wds_profile_identifier_type_v01;

/* Begins every response. */
typedef struct {
    uint32_t result;
    uint32_t error;
} wds_response_type_v01;

/*
 * The settings of a profile, as they are created, modified and read. Members of the other
 * technology are ignored by the service and absent in its answers.
 */
typedef struct {
    /* Both technologies. */
    uint64_t apn_type_mask;
    uint8_t apn_type_mask_valid;
    uint8_t clat_enabled_valid;
    uint8_t clat_enabled;

    /* 3GPP. */
    uint8_t profile_name_valid;
    char profile_name[WDS_PROFILE_NAME_SIZE_V01];
    uint8_t apn_name_valid;
    char apn_name[WDS_APN_NAME_SIZE_V01];
    uint8_t user_name_valid;
    char user_name[WDS_USER_NAME_SIZE_V01];
    uint8_t password_valid;
    char password[WDS_PASSWORD_SIZE_V01];
    uint8_t pdp_type_valid;
    wds_pdp_type_enum_v01 pdp_type;
    uint8_t override_home_pdp_type_valid;
    wds_common_pdp_type_enum_v01 override_home_pdp_type;
    uint8_t lte_roaming_pdp_type_valid;
    wds_common_pdp_type_enum_v01 lte_roaming_pdp_type;
    uint8_t umts_roaming_pdp_type_valid;
    wds_common_pdp_type_enum_v01 umts_roaming_pdp_type;
    uint8_t max_pdn_conn_per_block_valid;
    uint16_t max_pdn_conn_per_block;
    uint8_t max_pdn_conn_timer_valid;
    uint16_t max_pdn_conn_timer;
    uint8_t pdn_req_wait_interval_valid;
    uint16_t pdn_req_wait_interval;
    uint8_t support_emergency_calls_valid;
    uint8_t support_emergency_calls;
    uint8_t apn_disabled_valid;
    uint8_t apn_disabled;
    uint8_t auth_preference_valid;
    wds_auth_pref_mask_v01 auth_preference;
    uint8_t apn_class_valid;
    uint8_t apn_class;

    /* 3GPP2. */
    uint8_t apn_string_3gpp2_valid;
    char apn_string_3gpp2[WDS_APN_NAME_SIZE_V01];
    uint8_t user_id_3gpp2_valid;
    char user_id_3gpp2[WDS_USER_NAME_SIZE_V01];
    uint8_t password_3gpp2_valid;
    char password_3gpp2[WDS_PASSWORD_SIZE_V01];
    uint8_t pdn_level_user_id_3gpp2_valid;
    char pdn_level_user_id_3gpp2[WDS_USER_NAME_SIZE_V01];
    uint8_t pdn_level_password_3gpp2_valid;
    char pdn_level_password_3gpp2[WDS_PASSWORD_SIZE_V01];
    uint8_t pdn_type_3gpp2_valid;
    wds_profile_pdn_type_enum_v01 pdn_type_3gpp2;
    uint8_t auth_protocol_3gpp2_valid;
    wds_profile_auth_protocol_enum_v01 auth_protocol_3gpp2;
    uint8_t pdn_level_auth_protocol_3gpp2_valid;
    wds_pdn_level_auth_protocol_enum_v01 pdn_level_auth_protocol_3gpp2;
    uint8_t apn_class_3gpp2_valid;
    uint8_t apn_class_3gpp2;

    uint8_t reserved[2022];
} wds_profile_settings_type_v01;

/* 0x00AF: binds the client to a subscription. Answered with the common response. */
typedef struct {
    uint32_t subscription;
} wds_bind_subscription_req_msg_v01;

/* 0x0003: which indications the client wants. Answered with the common response. */
typedef struct {
    uint8_t reserved_head[16];
    uint8_t report_profile_changes_valid;
    uint8_t report_profile_changes;
    uint8_t reserved_tail[380];
} wds_indication_register_req_msg_v01;

/* 0x00A7: for which profiles changes are reported. Answered with the common response. */
typedef struct {
    uint8_t profile_event_valid;
    uint32_t profile_event_len;
    wds_profile_identifier_type_v01 profile_event[WDS_PROFILE_LIST_MAX_V01]; /* index 255 is all */
    uint8_t report_all_changes_valid;
    uint8_t report_all_changes;
} wds_configure_profile_event_list_req_msg_v01;

/* The whole answer to the three requests above. */
typedef struct {
    wds_response_type_v01 resp;
} wds_common_resp_msg_v01;

/* 0x0027: creates a profile. */
typedef struct {
    wds_profile_type_enum_v01 profile_type;
    uint8_t persistent_valid;
    uint8_t persistent;
    wds_profile_settings_type_v01 settings;
} wds_create_profile_req_msg_v01;

typedef struct {
    wds_response_type_v01 resp;
    wds_profile_identifier_type_v01 profile; /* of the new profile */
    uint8_t extended_error_valid;
    uint32_t extended_error;
} wds_create_profile_resp_msg_v01;

/* 0x0028: changes the settings that are present in the request and leaves the others. */
typedef struct {
    wds_profile_identifier_type_v01 profile;
    wds_profile_settings_type_v01 settings;
    uint8_t reserved[8];
} wds_modify_profile_settings_req_msg_v01;

typedef struct {
    wds_response_type_v01 resp;
    uint8_t extended_error_valid;
    uint32_t extended_error;
} wds_modify_profile_settings_resp_msg_v01;

/* 0x0029: deletes a profile. */
typedef struct {
    wds_profile_identifier_type_v01 profile;
} wds_delete_profile_req_msg_v01;

typedef struct {
    wds_response_type_v01 resp;
    uint8_t extended_error_valid;
    uint32_t extended_error;
} wds_delete_profile_resp_msg_v01;

/* 0x002B: reads the settings of a profile. */
typedef struct {
    wds_profile_identifier_type_v01 profile;
} wds_get_profile_settings_req_msg_v01;

typedef struct {
    wds_response_type_v01 resp;
    uint8_t persistent_valid;
    uint8_t persistent;
    wds_profile_settings_type_v01 settings;
    uint8_t extended_error_valid;
    uint32_t extended_error;
} wds_get_profile_settings_resp_msg_v01;

/* 0x002A: lists the profiles of one type. */
typedef struct {
    uint8_t profile_type_valid;
    wds_profile_type_enum_v01 profile_type;
    uint8_t reserved[176];
} wds_get_profile_list_req_msg_v01;

typedef struct {
    wds_profile_type_enum_v01 profile_type;
    uint8_t profile_index;
    char profile_name[WDS_PROFILE_NAME_SIZE_V01];
} wds_profile_info_type_v01;

typedef struct {
    wds_response_type_v01 resp;
    uint32_t profile_list_len;
    wds_profile_info_type_v01 profile_list[WDS_PROFILE_LIST_MAX_V01];
    uint8_t extended_error_valid;
    uint32_t extended_error;
} wds_get_profile_list_resp_msg_v01;

/* 0x00A8: a profile changed. */
typedef struct {
    wds_profile_type_enum_v01 profile_type;
    uint32_t profile_index;
    wds_profile_change_enum_v01 change;
} wds_profile_changed_ind_type_v01;

typedef struct {
    uint8_t profile_changed_valid;
    wds_profile_changed_ind_type_v01 profile_changed;
} wds_profile_changed_ind_msg_v01;

#ifdef __cplusplus
}

/* Lengths and offsets are the interface: a change here breaks every modem. */
#define WDS_CHECK_LENGTH(type, length) static_assert(sizeof(type) == (length), #type " length")
#define WDS_CHECK_OFFSET(type, member, offset) \
    static_assert(offsetof(type, member) == (offset), #type "::" #member " offset")
WDS_CHECK_LENGTH(wds_profile_identifier_type_v01, 8);
WDS_CHECK_OFFSET(wds_profile_identifier_type_v01, profile_type, 0);
WDS_CHECK_OFFSET(wds_profile_identifier_type_v01, profile_index, 4);
WDS_CHECK_LENGTH(wds_response_type_v01, 8);
WDS_CHECK_OFFSET(wds_response_type_v01, result, 0);
WDS_CHECK_OFFSET(wds_response_type_v01, error, 4);
WDS_CHECK_LENGTH(wds_profile_settings_type_v01, 3240);
WDS_CHECK_LENGTH(wds_bind_subscription_req_msg_v01, 4);
WDS_CHECK_LENGTH(wds_indication_register_req_msg_v01, 398);
WDS_CHECK_OFFSET(wds_indication_register_req_msg_v01, report_profile_changes_valid, 16);
WDS_CHECK_OFFSET(wds_indication_register_req_msg_v01, report_profile_changes, 17);
WDS_CHECK_LENGTH(wds_configure_profile_event_list_req_msg_v01, 2052);
WDS_CHECK_OFFSET(wds_configure_profile_event_list_req_msg_v01, profile_event_valid, 0);
WDS_CHECK_OFFSET(wds_configure_profile_event_list_req_msg_v01, profile_event_len, 4);
WDS_CHECK_OFFSET(wds_configure_profile_event_list_req_msg_v01, profile_event, 8);
WDS_CHECK_OFFSET(wds_configure_profile_event_list_req_msg_v01, report_all_changes_valid, 2048);
WDS_CHECK_OFFSET(wds_configure_profile_event_list_req_msg_v01, report_all_changes, 2049);
WDS_CHECK_LENGTH(wds_common_resp_msg_v01, 8);
WDS_CHECK_LENGTH(wds_create_profile_req_msg_v01, 3248);
WDS_CHECK_OFFSET(wds_create_profile_req_msg_v01, settings, 8);
WDS_CHECK_LENGTH(wds_create_profile_resp_msg_v01, 24);
WDS_CHECK_OFFSET(wds_create_profile_resp_msg_v01, resp, 0);
WDS_CHECK_OFFSET(wds_create_profile_resp_msg_v01, profile.profile_type, 8);
WDS_CHECK_OFFSET(wds_create_profile_resp_msg_v01, profile.profile_index, 12);
WDS_CHECK_LENGTH(wds_modify_profile_settings_req_msg_v01, 3256);
WDS_CHECK_OFFSET(wds_modify_profile_settings_req_msg_v01, profile, 0);
WDS_CHECK_OFFSET(wds_modify_profile_settings_req_msg_v01, settings, 8);
WDS_CHECK_LENGTH(wds_modify_profile_settings_resp_msg_v01, 16);
WDS_CHECK_OFFSET(wds_modify_profile_settings_resp_msg_v01, resp, 0);
WDS_CHECK_LENGTH(wds_delete_profile_req_msg_v01, 8);
WDS_CHECK_LENGTH(wds_delete_profile_resp_msg_v01, 16);
WDS_CHECK_OFFSET(wds_delete_profile_resp_msg_v01, resp, 0);
WDS_CHECK_LENGTH(wds_get_profile_settings_req_msg_v01, 8);
WDS_CHECK_LENGTH(wds_get_profile_settings_resp_msg_v01, 3264);
WDS_CHECK_OFFSET(wds_get_profile_settings_resp_msg_v01, resp, 0);
WDS_CHECK_OFFSET(wds_get_profile_settings_resp_msg_v01, settings, 16);
WDS_CHECK_LENGTH(wds_get_profile_list_req_msg_v01, 184);
WDS_CHECK_OFFSET(wds_get_profile_list_req_msg_v01, profile_type_valid, 0);
WDS_CHECK_OFFSET(wds_get_profile_list_req_msg_v01, profile_type, 4);
WDS_CHECK_LENGTH(wds_profile_info_type_v01, 56);
WDS_CHECK_OFFSET(wds_profile_info_type_v01, profile_type, 0);
WDS_CHECK_OFFSET(wds_profile_info_type_v01, profile_index, 4);
WDS_CHECK_LENGTH(wds_get_profile_list_resp_msg_v01, 14300);
WDS_CHECK_OFFSET(wds_get_profile_list_resp_msg_v01, resp, 0);
WDS_CHECK_OFFSET(wds_get_profile_list_resp_msg_v01, profile_list_len, 8);
WDS_CHECK_OFFSET(wds_get_profile_list_resp_msg_v01, profile_list, 12);
WDS_CHECK_LENGTH(wds_profile_changed_ind_msg_v01, 16);
WDS_CHECK_OFFSET(wds_profile_changed_ind_msg_v01, profile_changed_valid, 0);
WDS_CHECK_OFFSET(wds_profile_changed_ind_msg_v01, profile_changed, 4);
#undef WDS_CHECK_LENGTH
#undef WDS_CHECK_OFFSET
#endif

#endif
