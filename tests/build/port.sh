#!/usr/bin/env bash
# Usage: port.sh cmake compiler
# The library builds and runs on an implementation of platform/ other than the emulator, which
# supplies what platform/ declares and needs nothing of the library.
set -euo pipefail
place=$(mktemp -d)
trap 'rm -rf "$place"' EXIT

"$1" -S examples/port -B "$place" -G Ninja -DCMAKE_CXX_COMPILER="$2" >/dev/null
"$1" --build "$place" --target smoke
! ldd "$place/smoke" | grep -E 'emulator|not found' || exit 1
nm --dynamic --defined-only --format=posix "$place/libport_modem.so" | sed 's/ .*//' |
    grep -E '^(rav_|wds_|Diag_|msg_)' | sort >"$place/defined"
grep -ohE '\b(rav_client|wds_get|Diag_LSM|msg)_[A-Za-z0-9_]+\(' platform/*.h | tr -d '(' | sort -u |
    diff - "$place/defined"
timeout 120 "$place/smoke" 2>"$place/log" || { tail -n 50 "$place/log"; exit 1; }

# The run is worth nothing if it passes on any modem at all.
cp -r examples/port "$place/faulty"
while IFS='|' read -r fault edit; do
    sed "$edit" examples/port/service.c >"$place/faulty/service.c"
    ! cmp -s examples/port/service.c "$place/faulty/service.c" || { echo "not seeded: $fault"; exit 1; }
    cc -shared -fPIC -Iplatform "$place"/faulty/*.c -o "$place/libport_modem.so"
    ! timeout 120 "$place/smoke" >"$place/log" 2>&1 || { echo "not noticed: $fault"; exit 1; }
done <<'TABLE'
settings are lost|s/memcpy(to + .*);/;/
a deleted profile stays|s/profile->exists = 0;/;/
the answer names another profile|s/profile_index = (uint8_t)index;/profile_index = 200;/
TABLE
