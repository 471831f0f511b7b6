#!/usr/bin/env bash
# Every script answers --help with its usage and does nothing else, and refuses an argument that it
# does not know with its usage and status 2. The scripts run in a copy of their own, where programs
# that build, install or run something fail and leave a mark.
set -euo pipefail
place=$(mktemp -d)
trap 'rm -rf "$place"' EXIT
failed=0

mkdir "$place/programs" "$place/tree"
for program in cmake ctest apt-get dpkg-query sudo valgrind; do
    printf '#!/bin/sh\ntouch %s/ran\nexit 99\n' "$place" >"$place/programs/$program"
    chmod +x "$place/programs/$program"
done
export PATH=$place/programs:$PATH
cp -r .ci script "$place/tree"
cd "$place/tree"

# expect status script argument...: shows what is wrong.
expect() {
    local status=0 said
    rm -f "$place/ran"
    said=$("${@:2}" 2>&1 </dev/null) || status=$?
    [[ $status -eq $1 && ${said,,} == *usage:* && ! -e $place/ran && $(files) == "$before" ]] ||
        { echo "${*:2}: status $status, not $1, or no usage, or more than that:"; echo "$said"; failed=1; }
}
files() { find . -type f -print0 | sort -z | xargs -0 cksum; }
before=$(files)

for one in .ci/run script/*; do
    [[ -x $one ]] || continue
    expect 0 "$one" --help
    # kivctl is built before it refuses the arguments of script/run, which are its own.
    [[ $one == script/run ]] || expect 2 "$one" nonsense
done
expect 2 script/build development nonsense
expect 2 script/check tests nonsense
expect 2 script/cross arm64 nonsense
expect 2 script/fuzz 1 nonsense
expect 2 script/lint --fast nonsense
exit $failed
