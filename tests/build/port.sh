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
