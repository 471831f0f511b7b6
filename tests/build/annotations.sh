#!/usr/bin/env bash
# Each mutex of the library guards something, and says so to the compiler, for which no access without
# the lock then compiles: cmake/KivrThreadSafety.cmake proves that of the analysis itself.
set -euo pipefail
failed=0

mutexes=$(grep -HnoE '^ *((static|mutable|inline) )*std::[a-z_]*mutex +\w+;' src/*.h src/*.cpp)
while IFS=: read -r file line declaration; do
    name=${declaration##* }
    grep --quiet "KIV_\(GUARDED_BY\|REQUIRES\)(${name%;})" "$file" ||
        { echo "$file:$line: nothing is guarded by ${name%;}"; failed=1; }
done <<<"$mutexes"
exit $failed
