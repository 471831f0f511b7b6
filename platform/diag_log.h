/*
 * The diagnostic log: the modem's own trace channel, as an alternative to the Android log.
 * Declarations only; supplied by the device's diagnostic library, or by the emulator.
 *
 * Porting contract: Diag_LSM_Init and Diag_LSM_DeInit are counted, so that a new user may
 * initialise before the previous one has finished. msg_sprintf may run on any thread between
 * them, does not block on other library locks and does not call back.
 */
#ifndef PLATFORM_DIAG_LOG_H
#define PLATFORM_DIAG_LOG_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Describes the place that a line comes from; must stay valid for the life of the process. */
typedef struct {
    uint16_t line;         /* source line */
    uint16_t subsystem_id; /* diagnostic subsystem */
    uint32_t mask;         /* level bits */
    const char* format;    /* printf format of the line */
    const char* file_name; /* source file */
} diag_msg_descriptor;

/* Connects to the diagnostic log. The argument is reserved and null. Non-zero on success. */
int Diag_LSM_Init(uint8_t* reserved);

/* Ends what one Diag_LSM_Init began. Non-zero on success. */
int Diag_LSM_DeInit(void);

/* Writes one line: the descriptor's format, filled with the arguments that follow. */
void msg_sprintf(const diag_msg_descriptor* descriptor, ...);

#ifdef __cplusplus
}
#endif

#endif
