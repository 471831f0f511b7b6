#ifndef TOOLS_KIVCTL_APNENTRYREADER_H
#define TOOLS_KIVCTL_APNENTRYREADER_H

#include "ApnFile.h"

namespace kiv::kivctl {

/// Reads the attributes of one <apn> element: names and values by turns, and a null at the end.
/// Line and column are for the caller to set. Threads: any. Blocking: never.
ApnEntry readApnEntry(const char* const* attributes);

}  // namespace kiv::kivctl

#endif
