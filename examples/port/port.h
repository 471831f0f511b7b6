/* What the parts of this port share, and what its test may do to the modem. */
#ifndef PORT_H
#define PORT_H

#include "wds_v01.h"

#ifdef __cplusplus
extern "C" {
#endif

/* What a client has told the service. */
typedef struct {
    int is_bound;
    int wants_changes;
    int wants_all_profiles;
} port_session;

/* Carries out a request and fills in the response. RAV_CLIENT_OK, or why the bytes are no request.
 * The caller holds the lock of messaging.c, which thereby guards the table too. */
int port_answer(port_session* session, unsigned int msg_id, const void* req, unsigned int req_len,
                void* resp, unsigned int resp_len);

/* Queues an indication for every client that asked for it. The caller holds the lock. */
void port_report(wds_profile_type_enum_v01 type, uint8_t index, wds_profile_change_enum_v01 change);

/* The lock itself. */
void port_lock(void);
void port_unlock(void);

/* For the test: blocks until a client has registered, and changes a profile as the network may. */
void port_wait_for_client(void);
void port_disable_apn(wds_profile_type_enum_v01 type, uint8_t index);

#ifdef __cplusplus
}
#endif

#endif
