#ifndef KIVR_SRC_STANDARDOUTPUT_H
#define KIVR_SRC_STANDARDOUTPUT_H

namespace kiv {

/// Writes to standard output, but neither waits for a reader nor dies of SIGPIPE without one: the
/// text is then lost. Any thread.
void printIfPossible(const char* text);

}  // namespace kiv

#endif
