#!/usr/bin/env bash
# Sourced by the scripts: a command that fails ends the script, which works in the root of the tree.
# --help prints the comment at the script's beginning, and nothing else happens.
set -euo pipefail
script=script/${0##*/}
# shellcheck disable=SC2034  # script/run reads it
callersFolder=$PWD
cd "$(dirname "${BASH_SOURCE[0]}")/.."

usage() { sed -n '2,/^[^#]/s/^# \?//p' "$script"; }

# refuse text...: ends the script for wrong usage.
refuse() {
    echo "$script: $*" >&2
    usage >&2
    exit 2
}

# expectAmong word known...
expectAmong() { [[ " ${*:2} " == *" $1 "* ]] || refuse "there is no $1"; }

# expectPrefix prefix argument...
expectPrefix() {
    local argument
    for argument in "${@:2}"; do
        [[ $argument == "$1"* ]] || refuse "$argument does not begin with $1"
    done
}

# expectNothing argument...
expectNothing() { [[ $# -eq 0 ]] || refuse "takes no argument: $*"; }

if [[ ${1:-} == --help ]]; then
    usage
    exit 0
fi
