#!/usr/bin/env bash
# Usage: annotations.sh clang++
# What threads share can't be touched without its lock: clang refuses each of these statements, and
# takes it where the lock is held; of the last ones it is the other way round.
set -euo pipefail
failed=0

# compiles header parameter statement...
compiles() {
    "$compiler" -std=c++20 -fsyntax-only -stdlib=libc++ -fno-access-control -Iinc -Isrc -Iplatform \
        -D_LIBCPP_ENABLE_THREAD_SAFETY_ANNOTATIONS -Werror=thread-safety -Wno-unused-value \
        -x c++ - <<<"#include \"$1\""$'\n'"namespace kiv { void touch($2) { ${*:3} } }" 2>&1
}

compiler=$1
while IFS='|' read -r header parameter mutex statement wanted; do
    with=yes without=yes
    said=$(compiles "$header" "$parameter" "std::lock_guard lock($mutex);" "$statement") || with=no
    said+=$(compiles "$header" "$parameter" "$statement") || without=no
    [[ $with/$without == "$wanted" && $said == *"-Wthread-safety-"* ]] ||
        { echo "$statement: with the lock $with, without $without"$'\n'"$said"; failed=1; }
done <<'TABLE'
RequestGate.h|RequestGate& g|g.mutex|g.closed = true;|yes/no
RequestGate.h|RequestGate& g|g.mutex|g.gone = true;|yes/no
ClientRequestManager.h|ClientRequestManager& m|m.mutex|m.mailbox.clear();|yes/no
ClientRequestManager.h|ClientRequestManager& m|m.mutex|m.closing = true;|yes/no
ClientRequestManager.h|ClientRequestManager& m|m.mutex|m.waiting.clear();|yes/no
ClientRequestManager.h|ClientRequestManager& m|m.mutex|m.move({}, m.spares);|yes/no
ClientRequestManager.h|ClientRequestManager& m|m.mutex|m.passMailbox();|yes/no
EventManager.h|EventManager& m|m.mutex|m.deferred.clear();|yes/no
EventManager.h|EventManager& m|m.mutex|m.handlers.clear();|yes/no
CacheContents.h|CacheContents& c|c.mutex|c.profiles.clear();|yes/no
CacheContents.h|CacheContents& c|c.mutex|c.expected.clear();|yes/no
RavWdsProxy.h|RavWdsProxy& p|p.indQueueMutex|p.indQueue.clear();|yes/no
LogWrapper.h|LogWrapper& w|w.replacedMutex|w.replaced.reset();|yes/no
LocalLogBuffer.h|LocalLogBuffer& b|b.mutex|b.logs.clear();|yes/no
ClientRequestManager.h|ClientRequestManager& m|m.mutex|m.serveRequest();|no/yes
CacheContents.h|CacheContents& c|c.mutex|c.take(0);|no/yes
RequestGate.h|RequestGate& g|g.mutex|g.leave();|no/yes
TABLE
exit $failed
