/*
 * The modem messaging client: what a device must supply so that the library can talk to the
 * modem's services. Declarations only; the implementation is the device's own messaging library,
 * or the modem emulator on a development machine.
 *
 * Porting contract, for all operations:
 *  - Results are 0 for success and negative for failure, unless said otherwise.
 *  - Callbacks run on threads of the messaging library, never on the thread that called into it.
 *  - A callback may be delivered from the moment its registration call was entered.
 *  - After rav_client_release has returned, no callback of that client runs or starts. Callbacks
 *    must therefore not wait for the thread that may be releasing the client.
 *  - Different threads may use different clients at once. One client is used by one thread at a
 *    time; its callbacks may arrive meanwhile.
 */
#ifndef PLATFORM_RAV_CLIENT_H
#define PLATFORM_RAV_CLIENT_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* A client or a service-arrival notifier; null is no client. */
typedef struct rav_client_struct* rav_client_type;

/* Describes one service; obtained from the service's own definition, never freed. */
typedef const struct rav_service_object* rav_service_object_type;

/* Addresses one running instance of a service. Filled by rav_client_get_any_service. */
typedef struct {
    uint32_t node;
    uint32_t port;
    uint32_t instance;
    uint32_t reserved;
} rav_service_info;

/* Operating-system parameters of a client; zeroed by the caller, private to the messaging library.
 */
typedef struct {
    uint64_t reserved[8];
} rav_client_os_params;

/* Results of the operations below. Only 0 is success. */
enum {
    RAV_CLIENT_OK = 0,
    RAV_CLIENT_ERR_NO_SERVICE = -1,   /* no instance of the service is running */
    RAV_CLIENT_ERR_INVALID = -2,      /* null or unknown handle, null pointer, unknown message */
    RAV_CLIENT_ERR_TIMEOUT = -3,      /* no response within the given time */
    RAV_CLIENT_ERR_SERVICE_GONE = -4, /* the service went away before it answered */
    RAV_CLIENT_ERR_MALFORMED = -5,    /* bytes or lengths do not fit the message's definition */
    RAV_CLIENT_ERR_NO_MEMORY = -6
};

/* Kinds of messages, for rav_client_message_decode. */
enum { RAV_MESSAGE_REQUEST = 0, RAV_MESSAGE_RESPONSE = 1, RAV_MESSAGE_INDICATION = 2 };

/* Events of a notifier. The limits make every 32-bit value a valid one of the type. */
typedef enum {
    RAV_CLIENT_SERVICE_APPEARED = 0,
    RAV_CLIENT_SERVICE_DISAPPEARED = 1,
    RAV_CLIENT_NOTIFY_EVENT_MIN_VALUE = INT32_MIN,
    RAV_CLIENT_NOTIFY_EVENT_MAX_VALUE = INT32_MAX
} rav_client_notify_event_type;

/* Tells that the number of running instances of a service changed. */
typedef void (*rav_client_notify_cb)(rav_client_type notifier, rav_service_object_type service,
                                     rav_client_notify_event_type event, void* user_data);

/* Tells that the client's service went away. The client only remains to be released. */
typedef void (*rav_client_error_cb)(rav_client_type client, int error, void* user_data);

/* Delivers one encoded indication. The bytes are the library's again when the callback returns. */
typedef void (*rav_client_ind_cb)(rav_client_type client, unsigned int msg_id, void* ind_buf,
                                  unsigned int ind_buf_len, void* ind_cb_data);

/* Creates a notifier that reports the arrival of the service. Does not block. */
int rav_client_notifier_init(rav_service_object_type service, rav_client_os_params* os_params,
                             rav_client_type* notifier);

/* Registers the notifier's callback. A service that is already running is reported at once. */
int rav_client_register_notify_cb(rav_client_type notifier, rav_client_notify_cb cb,
                                  void* user_data);

/* Fills in the address of one running instance of the service. Does not block. */
int rav_client_get_any_service(rav_service_object_type service, rav_service_info* info);

/* Opens a client on the given instance. On failure *client is left as it was. */
int rav_client_init(const rav_service_info* info, rav_service_object_type service,
                    rav_client_ind_cb ind_cb, void* ind_cb_data, rav_client_os_params* os_params,
                    rav_client_type* client);

/* Registers the callback that reports the loss of the client's service. A service that is already
 * gone is reported at once. */
int rav_client_register_error_cb(rav_client_type client, rav_client_error_cb cb, void* user_data);

/*
 * Sends a request and waits for its response. req and resp are the message's plain structures.
 * Blocks for at most timeout_ms milliseconds. On failure the contents of resp are unspecified.
 */
int rav_client_send_msg_sync(rav_client_type client, unsigned int msg_id, const void* req,
                             unsigned int req_len, void* resp, unsigned int resp_len,
                             unsigned int timeout_ms);

/* Decodes an encoded message into its plain structure of out_len bytes. Does not block. The client
 * is the one that the message came for; it may have been released meanwhile, and need not be known
 * any more. On failure the contents of out are unspecified. */
int rav_client_message_decode(rav_client_type client, int message_kind, unsigned int msg_id,
                              const void* buf, unsigned int buf_len, void* out,
                              unsigned int out_len);

/* Closes a client or a notifier. Blocks until its running callbacks have returned. */
int rav_client_release(rav_client_type client);

#ifdef __cplusplus
}
#endif

#endif
