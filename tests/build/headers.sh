#!/usr/bin/env bash
# Usage: headers.sh compiler standard
# Every public header stands alone, without a warning, and sees nothing but inc/. So do the
# platform's, which must also be valid C.
set -euo pipefail

failed=0
compile() {
    "$compiler" "-std=$1" -S -o /dev/null -Wall -Wextra -Wpedantic -Werror "${@:2}" ||
        { echo "$header does not stand alone in $1"; failed=1; }
}

compiler=$1
for header in inc/*.h platform/*.h; do
    include="#include \"$(basename "$header")\""
    # Twice, for the include guard.
    compile "c++$2" -iquote "$(dirname "$header")" -x c++ - <<<"$include"$'\n'"$include"
    [[ $header == inc/* ]] || compile c11 -x c -include "$header" /dev/null
done
exit $failed
