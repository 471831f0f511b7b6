#ifndef CLIENT_UTIL_H
#define CLIENT_UTIL_H

#include <cstdio>

namespace client {

/// Says whether all is as it should be, and counts: 0 if so, 1 if not.
inline int require(bool condition, const char* what) {
    std::printf("%s: %s\n", condition ? "ok" : "FAILED", what);
    return condition ? 0 : 1;
}

}  // namespace client

#endif
