#!/usr/bin/env bash
# Usage: abi.sh compiler
# script/abi notices what breaks clients that are already built, and only that. A library of one
# source stands for the whole.
set -euo pipefail
place=$(mktemp -d)
trap 'rm -rf "$place"' EXIT
failed=0

# built edit: the library with its headers changed by a sed script.
built() {
    rm -rf "$place/src" "$place/inc"
    cp -r inc src "$place"
    sed -i "$1" "$place"/inc/ProfileParams.h
    [[ -z $1 ]] || ! cmp -s inc/ProfileParams.h "$place/inc/ProfileParams.h" ||
        { echo "changes nothing: $1"; exit 1; }
    "$compiler" -std=c++20 -g -fPIC -fvisibility=hidden -shared -I"$place/inc" -I"$place/src" -Iplatform \
        "$place/src/ProfileParams.cpp" -o "$place/libkivr.so"
}

compiler=$1
mkdir "$place/accepted"
built ''
script/abi --accept "$place/libkivr.so" "$place/accepted"
while IFS='|' read -r name wanted edit; do
    built "$edit"
    result=same
    script/abi "$place/libkivr.so" "$place/accepted" >"$place/output" 2>&1 || result=changed
    [[ $result == "$wanted" ]] || { echo "$name: $result"; cat "$place/output"; failed=1; }
done <<'TABLE'
a comment|same|s,// The library's image,// The image,
another order of fields|changed|/> password;/{h;d};/> authType;/{G}
a new field|changed|s/std::optional<int> pdnReqWaitInterval;/& std::optional<int> more;/
a new virtual operation|changed|s/virtual ~ProfileParams();/& virtual void more() {}/
an operation that is gone|changed|s/class KIV_API ProfileParams/class ProfileParams/
TABLE
exit $failed
