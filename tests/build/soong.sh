#!/usr/bin/env bash
# Usage: soong.sh libkivr.so
# Android.bp is formatted, and the library that mini-soong builds from it exports what CMake's does, and
# runs. The modem in memory of examples/port plays the device. mini-soong overlooks cpp_std and
# version_script, which are therefore read here.
set -euo pipefail
place=$(mktemp -d)
trap 'rm -rf "$place"' EXIT
exported() { nm --dynamic --defined-only --format=posix "$1" | sed 's/ .*//' | sort; }
value() { sed -n "s/^    $1: \"\(.*\)\",\$/\1/p" Android.bp; }

[[ -z $(bpfmt -l Android.bp) ]] || { bpfmt -d Android.bp; exit 1; }
cp -r Android.bp inc src platform examples "$place"
cat >>"$place/Android.bp" <<'END'

cc_library_shared {
    name: "libkivr_modem",
    srcs: ["examples/port/*.c"],
    local_include_dirs: ["platform"],
    export_include_dirs: ["examples/port"],
}
END
log=$(dirname "$(find /usr/lib -path '*android/liblog.so' -print -quit)")
standard=$(value cpp_std)
script=$(value version_script)
(
    cd "$place"
    mini-soong -o Makefile
    make --silent libkivr_modem.so
    make --silent libkivr.so CXXFLAGS="-std=$standard -isystem /usr/include/android" \
        LDFLAGS="-L. -L$log -Wl,--version-script=$script"
)
diff <(exported "$1") <(exported "$place/libkivr.so") ||
    { echo "Android.bp builds another interface"; exit 1; }
mkdir "$place/kivr"
cp inc/*.h "$place/kivr"
g++ -std=c++17 -I"$place" -Iexamples/port -Iplatform examples/port/smoke.cpp -o "$place/smoke" \
    -L"$place" -lkivr -lkivr_modem -Wl,-rpath-link="$log"
LD_LIBRARY_PATH=$place:$log timeout 120 "$place/smoke" >"$place/log" 2>&1 || { cat "$place/log"; exit 1; }
