#!/usr/bin/env bash
# Usage: exports.sh libkivr.so clang++
# The library exports what the public headers declare without a body, so that a client that compiles
# also links, and nothing else. It needs only what a device has, or on a development machine the
# emulator.
set -euo pipefail
place=$(mktemp -d)
trap 'rm -rf "$place"' EXIT
failed=0

for header in inc/*.h; do echo "#include \"${header#inc/}\""; done |
    "$2" -std=c++17 -Iinc -fsyntax-only -Xclang -ast-dump=json -Xclang -ast-dump-filter=kiv \
        -x c++ - >"$place/ast.json"
tests/build/declared.py "$place/ast.json" | c++filt | sort -u >"$place/declared"
nm --dynamic --defined-only --format=posix "$1" | sed 's/ .*//' | c++filt | sort -u \
    >"$place/exported"
[[ $(wc -l <"$place/declared") -ge 30 ]] || { echo "found no declarations"; failed=1; }
! comm -23 "$place/declared" "$place/exported" | grep . || { echo "not exported"; failed=1; }

params='(Add|Filter|Modify)?ProfileParams'
implied="^(vtable|typeinfo|typeinfo name) for kiv::(IProfileKey|$params)\$|^kiv::$params::~$params"
! comm -13 "$place/declared" "$place/exported" | grep -vE "$implied" ||
    { echo "exported, but not public"; failed=1; }

libraries='lib(stdc\+\+|m|gcc_s|c|log|kivr_emulator)\.so|ld-linux'
! readelf --dynamic --wide "$1" | grep NEEDED | grep -vE "\[($libraries)" ||
    { echo "needed, but not on a device"; failed=1; }
exit $failed
