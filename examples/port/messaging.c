/*
 * The messaging client: handles, and one thread that makes all callbacks. The modem of this port is
 * on from the beginning and never lost. An indication's encoded form is its plain structure.
 */
#include <pthread.h>
#include <stdlib.h>
#include <string.h>

#include "port.h"

struct rav_service_object {
    int32_t version;
};

struct rav_client_struct {
    struct rav_client_struct* next;
    port_session session;
    rav_client_notify_cb notify;
    rav_client_ind_cb indicate;
    void* data;
};

/* A callback that is due: of the notifier where there is a notify function, else an indication. */
struct event {
    struct event* next;
    rav_client_type client;
    wds_profile_changed_ind_msg_v01 message;
};

static const struct rav_service_object service = {WDS_SERVICE_MINOR_VERSION_V01};

/* Guards everything below, and the table of service.c. Never held during a callback. */
static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t changed = PTHREAD_COND_INITIALIZER;
static struct rav_client_struct* clients;
static struct event* events;
static rav_client_type running; /* whose callback is being made */
static pthread_t thread;
static pthread_once_t started = PTHREAD_ONCE_INIT;
static int has_thread;

void port_lock(void) { pthread_mutex_lock(&lock); }
void port_unlock(void) { pthread_mutex_unlock(&lock); }

static void make_callback(struct event* event) {
    const struct rav_client_struct client = *event->client;
    running = event->client;
    port_unlock();
    if (client.notify != NULL) {
        client.notify(running, &service, RAV_CLIENT_SERVICE_APPEARED, client.data);
    } else {
        client.indicate(running, RAV_WDS_PROFILE_CHANGED_IND_V01, &event->message,
                        sizeof(event->message), client.data);
    }
    port_lock();
    running = NULL;
    pthread_cond_broadcast(&changed);
}

static void* make_callbacks(void* unused) {
    port_lock();
    for (;;) {
        struct event* const event = events;
        if (event == NULL) {
            pthread_cond_wait(&changed, &lock);
            continue;
        }
        events = event->next;
        make_callback(event);
        free(event);
    }
    return unused;
}

static void start(void) {
    has_thread = pthread_create(&thread, NULL, make_callbacks, NULL) == 0;
    if (has_thread) {
        pthread_detach(thread);
    }
}

static int queue_event(rav_client_type client, const wds_profile_changed_ind_msg_v01* message) {
    struct event** end = &events;
    struct event* const event = calloc(1, sizeof(*event));
    if (event == NULL) {
        return RAV_CLIENT_ERR_NO_MEMORY;
    }
    event->client = client;
    if (message != NULL) {
        event->message = *message;
    }
    while (*end != NULL) {
        end = &(*end)->next;
    }
    *end = event;
    pthread_cond_broadcast(&changed);
    return RAV_CLIENT_OK;
}

static rav_client_type find(rav_client_type handle) {
    rav_client_type client = clients;
    while (client != NULL && client != handle) {
        client = client->next;
    }
    return client;
}

static int open_client(rav_client_ind_cb indicate, void* data, rav_client_type* handle) {
    rav_client_type client;
    pthread_once(&started, start);
    client = has_thread ? calloc(1, sizeof(*client)) : NULL;
    if (client == NULL) {
        return RAV_CLIENT_ERR_NO_MEMORY;
    }
    client->indicate = indicate;
    client->data = data;
    port_lock();
    client->next = clients;
    clients = client;
    *handle = client; /* under the lock: a callback may follow at once */
    port_unlock();
    return RAV_CLIENT_OK;
}

rav_service_object_type wds_get_service_object_internal_v01(int32_t major, int32_t minor,
                                                            int32_t library_version) {
    const int is_known = major == WDS_SERVICE_MAJOR_VERSION_V01 &&
                         minor == WDS_SERVICE_MINOR_VERSION_V01 &&
                         library_version == WDS_SERVICE_LIBRARY_VERSION_V01;
    return is_known ? &service : NULL;
}

int rav_client_notifier_init(rav_service_object_type object, rav_client_os_params* os_params,
                             rav_client_type* notifier) {
    if (object != &service || os_params == NULL || notifier == NULL) {
        return RAV_CLIENT_ERR_INVALID;
    }
    return open_client(NULL, NULL, notifier);
}

int rav_client_register_notify_cb(rav_client_type notifier, rav_client_notify_cb cb,
                                  void* user_data) {
    int result = RAV_CLIENT_ERR_INVALID;
    port_lock();
    if (cb != NULL && find(notifier) != NULL && notifier->indicate == NULL) {
        notifier->notify = cb;
        notifier->data = user_data;
        result = queue_event(notifier, NULL); /* the service is always there */
    }
    port_unlock();
    return result;
}

int rav_client_get_any_service(rav_service_object_type object, rav_service_info* info) {
    if (object != &service || info == NULL) {
        return RAV_CLIENT_ERR_INVALID;
    }
    memset(info, 0, sizeof(*info));
    return RAV_CLIENT_OK;
}

int rav_client_init(const rav_service_info* info, rav_service_object_type object,
                    rav_client_ind_cb ind_cb, void* ind_cb_data, rav_client_os_params* os_params,
                    rav_client_type* client) {
    if (info == NULL || object != &service || ind_cb == NULL || os_params == NULL ||
        client == NULL) {
        return RAV_CLIENT_ERR_INVALID;
    }
    return open_client(ind_cb, ind_cb_data, client);
}

int rav_client_register_error_cb(rav_client_type client, rav_client_error_cb cb, void* user_data) {
    int is_known;
    (void)user_data; /* this modem is never lost */
    port_lock();
    is_known = find(client) != NULL;
    port_unlock();
    return is_known && cb != NULL ? RAV_CLIENT_OK : RAV_CLIENT_ERR_INVALID;
}

int rav_client_send_msg_sync(rav_client_type client, unsigned int msg_id, const void* req,
                             unsigned int req_len, void* resp, unsigned int resp_len,
                             unsigned int timeout_ms) {
    int result = RAV_CLIENT_ERR_INVALID;
    (void)timeout_ms; /* the table answers at once */
    port_lock();
    if (req != NULL && resp != NULL && find(client) != NULL && client->indicate != NULL) {
        result = port_answer(&client->session, msg_id, req, req_len, resp, resp_len);
        pthread_cond_broadcast(&changed); /* a client may have registered */
    }
    port_unlock();
    return result;
}

int rav_client_message_decode(rav_client_type client, int message_kind, unsigned int msg_id,
                              const void* buf, unsigned int buf_len, void* out,
                              unsigned int out_len) {
    (void)client; /* may be released already */
    if (buf == NULL || out == NULL || message_kind != RAV_MESSAGE_INDICATION ||
        msg_id != RAV_WDS_PROFILE_CHANGED_IND_V01) {
        return RAV_CLIENT_ERR_INVALID;
    }
    if (buf_len != sizeof(wds_profile_changed_ind_msg_v01) || out_len != buf_len) {
        return RAV_CLIENT_ERR_MALFORMED;
    }
    memcpy(out, buf, buf_len);
    return RAV_CLIENT_OK;
}

static void drop_events(rav_client_type client) {
    struct event** place = &events;
    while (*place != NULL) {
        struct event* const event = *place;
        if (event->client == client) {
            *place = event->next;
            free(event);
        } else {
            place = &event->next;
        }
    }
}

int rav_client_release(rav_client_type client) {
    struct rav_client_struct** place = &clients;
    port_lock();
    while (*place != NULL && *place != client) {
        place = &(*place)->next;
    }
    if (client == NULL || *place == NULL) {
        port_unlock();
        return RAV_CLIENT_ERR_INVALID;
    }
    *place = client->next;
    drop_events(client);
    /* The callback that is being made may still use what the caller frees next. */
    while (running == client && !pthread_equal(pthread_self(), thread)) {
        pthread_cond_wait(&changed, &lock);
    }
    port_unlock();
    free(client);
    return RAV_CLIENT_OK;
}

void port_report(wds_profile_type_enum_v01 type, uint8_t index,
                 wds_profile_change_enum_v01 change) {
    wds_profile_changed_ind_msg_v01 message = {0};
    rav_client_type client;
    message.profile_changed_valid = 1;
    message.profile_changed.profile_type = type;
    message.profile_changed.profile_index = index;
    message.profile_changed.change = change;
    for (client = clients; client != NULL; client = client->next) {
        if (client->session.wants_changes && client->session.wants_all_profiles) {
            queue_event(client, &message); /* without memory it is lost, as on the air */
        }
    }
}

static int is_registered(void) {
    rav_client_type client = clients;
    while (client != NULL && !(client->session.is_bound && client->session.wants_changes &&
                               client->session.wants_all_profiles)) {
        client = client->next;
    }
    return client != NULL;
}

void port_wait_for_client(void) {
    port_lock();
    while (!is_registered()) {
        pthread_cond_wait(&changed, &lock);
    }
    port_unlock();
}
