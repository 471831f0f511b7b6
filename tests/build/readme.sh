#!/usr/bin/env bash
# Usage: readme.sh cmake build-folder compiler
# The README's example, taken from its text, does what it says, built in both ways that are there.
# The documents name no file, script or fuzz target that does not exist.
set -euo pipefail
place=$(mktemp -d)
trap 'rm -rf "$place"' EXIT

# block language: the one code block of that language.
block() {
    awk -v begin="\`\`\`$1" '$0 == "```" { inside = 0 } inside { print } $0 == begin { inside = 1 }' \
        README.md | grep . || { echo "README.md has no $1" >&2; exit 1; }
}
says() {
    local output
    output=$("$@" 2>"$place/log") || { cat "$place/log"; exit 1; }
    [[ $output == *"The modem has made profile 1."*"It has 0 now."* ]] || { echo "$output"; exit 1; }
}

"$1" --install "$2" --prefix "$place/installed" >/dev/null
mkdir "$place/example"
block cpp >"$place/example/example.cpp"
block cmake >"$place/example/CMakeLists.txt"
"$1" -S "$place/example" -B "$place/build" -DCMAKE_CXX_COMPILER="$3" \
    -DCMAKE_PREFIX_PATH="$place/installed" >/dev/null
"$1" --build "$place/build" >/dev/null
says "$place/build/example"

export PKG_CONFIG_PATH LD_LIBRARY_PATH
PKG_CONFIG_PATH=$(dirname "$(find "$place/installed" -name kivr.pc)")
LD_LIBRARY_PATH=$(pkg-config --variable=libdir kivr)
command=$(sed -n 's/^    g++ \(.*pkg-config.*\)/\1/p' README.md)
[[ -n $command ]] || { echo "README.md has no g++"; exit 1; }
(cd "$place/example" && eval "$3 $command")
says "$place/example/example"

failed=0
while IFS=: read -r file link; do
    [[ -e $(dirname "$file")/$link ]] || { echo "$file: no $link"; failed=1; }
done < <(grep --recursive --only-matching --with-filename --include='*.md' --exclude-dir=build \
    --exclude-dir=.git -E '\]\([^)#:]+' . | sed 's/\](//')
names() { grep --only-matching --no-filename -E "$1" ./*.md docs/*.md | sort -u; }
while read -r script; do
    [[ -x $script ]] || { echo "no $script"; failed=1; }
done < <(names '\bscript/[a-z-]+\b' | grep -v packages)
while read -r -a targets; do
    for target in "${targets[@]:2}"; do
        [[ -d fuzz/corpus/$target ]] || { echo "no fuzz target $target"; failed=1; }
    done
done < <(names 'script/fuzz [0-9]+[a-z_ ]*')
exit $failed
