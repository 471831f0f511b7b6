#!/usr/bin/env bash
# Usage: exports.sh libkivr.so
# The library exports the whole public interface and nothing else, and needs only what a device
# has, or on a development machine the emulator.
set -euo pipefail
failed=0

manager=(getInstance Manager '~Manager' init addProfile modifyProfile deleteProfile filter
    getProfile match refresh dump)
util=(Util '~Util' setProfileUpdateAllowed findOrCreateProfileForSetupDataCall
    findOrCreateProfileForEmergencyDataCall findOrCreateProfileForLteAttach
    matchLteAttachProfileId updateModemProfileByApnClass updateModemProfileByApnClassAndTechType
    updateAPNTypeBitmaskOnModemProfile handleCombinedProfileUpdate handleProfileUpdateByTechType
    updateByIpType)
params='(Add|Filter|Modify)?ProfileParams'
wanted=("${manager[@]/#/Manager::}" "${util[@]/#/Util::}" IProfileKey::{,'~'}IProfileKey
    ProfileParams::{'~ProfileParams',dump} AddProfileParams::{,'~'}AddProfileParams
    AddProfileParams::dump FilterProfileParams::{,'~'}FilterProfileParams FilterProfileParams::dump
    ModifyProfileParams::{,'~'}ModifyProfileParams)

exports=$(nm --dynamic --defined-only --demangle --format=posix "$1" |
    sed -E 's/ [A-Za-z]( [0-9a-f]+)*$//; s/\[abi:cxx11\]//')
for name in "${wanted[@]}"; do
    grep -q "^kiv::$name(" <<<"$exports" || { echo "not exported: kiv::$name"; failed=1; }
done
for type in ApnTypes FilterMatchType; do
    grep -q "^kiv::operator<<(.*, kiv::$type)" <<<"$exports" ||
        { echo "not exported: operator<< of $type"; failed=1; }
done

public=$(IFS='|'; echo "${manager[*]/#/Manager::}|${util[*]/#/Util::}")
public="^kiv::($public|IProfileKey::~?IProfileKey|$params::(~?$params|operator=|dump))\\("
public+="|^kiv::operator<<\\(.*, kiv::(ApnTypes|FilterMatchType)\\)"
public+="|^(vtable|typeinfo|typeinfo name) for kiv::(IProfileKey|$params)\$"
! grep -vE "$public" <<<"$exports" || { echo "exported, but not public"; failed=1; }

libraries='lib(stdc\+\+|m|gcc_s|c|log|kivr_emulator)\.so|ld-linux'
! readelf --dynamic --wide "$1" | grep NEEDED | grep -vE "\[($libraries)" ||
    { echo "needed, but not on a device"; failed=1; }
exit $failed
