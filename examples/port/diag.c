/* The diagnostic log: lines go to standard error while somebody has it open. */
#include <stdarg.h>
#include <stdatomic.h>
#include <stdio.h>

#include "diag_log.h"

static atomic_int users;

int Diag_LSM_Init(uint8_t* reserved) {
    (void)reserved;
    atomic_fetch_add(&users, 1);
    return 1;
}

int Diag_LSM_DeInit(void) { return atomic_fetch_sub(&users, 1) > 0; }

void msg_sprintf(const diag_msg_descriptor* descriptor, ...) {
    char line[1024];
    va_list arguments;
    if (atomic_load(&users) <= 0) {
        return;
    }
    va_start(arguments, descriptor);
    vsnprintf(line, sizeof(line), descriptor->format, arguments);
    va_end(arguments);
    fprintf(stderr, "%s\n", line); /* one call, so that lines of two threads do not mix */
}
