#!/usr/bin/env bash
# Usage: install.sh cmake build-folder compiler
# What is installed serves a project that finds it with CMake or pkg-config, from any place.
set -euo pipefail
place=$(mktemp -d)
trap 'rm -rf "$place"' EXIT

"$1" --install "$2" --prefix "$place/first" >/dev/null
mv "$place/first" "$place/moved"
"$1" -S examples/client -B "$place/client" -DCMAKE_CXX_COMPILER="$3" \
    -DCMAKE_PREFIX_PATH="$place/moved" >/dev/null
"$1" --build "$place/client"
"$place/client/client"
"$place/moved/bin/kivctl" --help >/dev/null

PKG_CONFIG_PATH=$(dirname "$(find "$place/moved" -name kivr.pc)")
export PKG_CONFIG_PATH
read -ra flags < <(pkg-config --cflags --libs kivr)
echo '#include "Manager.h"
int main() { return kiv::Manager::getInstance().dump().empty(); }' |
    "$3" -std=c++17 -x c++ - "${flags[@]}" -o "$place/packaged"
LD_LIBRARY_PATH=$(pkg-config --variable=libdir kivr) "$place/packaged"
