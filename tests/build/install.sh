#!/usr/bin/env bash
# Usage: install.sh cmake build-folder compiler
# A client finds the library in every way that the README names: installed, from any place, with
# CMake or pkg-config, or from the sources. Each time the example is configured, built and run.
set -euo pipefail
place=$(mktemp -d)
trap 'rm -rf "$place"' EXIT

"$1" --install "$2" --prefix "$place/first" >/dev/null
mv "$place/first" "$place/moved"
export PKG_CONFIG_PATH
PKG_CONFIG_PATH=$(dirname "$(find "$place/moved" -name kivr.pc)")

withCMake() {
    "$1" -S examples/client -B "$place/$4" -DCMAKE_CXX_COMPILER="$3" "${@:5}" >/dev/null
    "$1" --build "$place/$4" --target client
    "$place/$4/client"
}

withPkgConfig() {
    read -ra flags < <(pkg-config --cflags --libs kivr kivr-emulator)
    "$3" -std=c++17 examples/client/*.cpp -o "$place/client" "${flags[@]}" -Iexamples/client/own
    LD_LIBRARY_PATH=$(pkg-config --variable=libdir kivr) "$place/client"
}

withCMake "$@" installed -DCMAKE_PREFIX_PATH="$place/moved"
withPkgConfig "$@"
withCMake "$@" sources -DKIVR_SOURCES="$PWD" -G Ninja
"$place/moved/bin/kivctl" --help >/dev/null

# What is not there is missed, and a device's build is told what to set.
refused() {
    ! "$1" -S "$2" -B "$place/refused" "${@:4}" >"$place/output" 2>&1 || { echo "took $2"; exit 1; }
    grep -q "$3" "$place/output" || { cat "$place/output"; exit 1; }
    rm -rf "$place/refused"
}
mkdir "$place/unknown"
printf '%s\n' 'cmake_minimum_required(VERSION 3.25)' 'project(unknown LANGUAGES CXX)' \
    'find_package(kivr REQUIRED COMPONENTS phone)' >"$place/unknown/CMakeLists.txt"
refused "$1" "$place/unknown" 'without a component phone' -DCMAKE_PREFIX_PATH="$place/moved"
refused "$1" . 'KIVR_MODEM_LIBRARIES to' -DCMAKE_SYSTEM_NAME=Linux -DCMAKE_CXX_COMPILER="$3"
