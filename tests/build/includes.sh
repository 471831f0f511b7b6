#!/usr/bin/env bash
# Includes point one way. In quotes, each folder includes only from the folders named with it; in
# angle brackets it includes no header of the project, and inc/ only the C++ standard library's.
set -euo pipefail
shopt -s nullglob
failed=0

# check folder allowed...
check() {
    local file line name place
    while IFS=: read -r file line name; do
        for place in "${@:2}"; do
            [[ $name == */* || ! -f $place/$name ]] || continue 2
        done
        echo "$file:$line: $1 must not include \"$name\""
        failed=1
    done < <(grep -HnE '^ *# *include *"' "$1"/*.{h,cpp} /dev/null |
        sed -E 's/: *# *include *"([^"]*)".*/:\1/')
}

check inc inc
check platform platform
check src src inc platform
check emulator emulator platform
check tools/kivctl tools/kivctl inc platform emulator
check tests/api tests/api tests/support inc platform emulator

own=$(find inc platform src emulator -name '*.h' -printf '%f|')
! grep -rnE "# *include *<(.*/)?(${own%|})>" inc platform src emulator tools tests || failed=1
! grep -nE '# *include *<[^>]*[./]' inc/*.h || failed=1
exit $failed
