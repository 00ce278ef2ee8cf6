#!/usr/bin/env bash
# Builds some subsystems with ThreadSanitizer and runs some of their tests.
#   scripts/tsan.sh <subsystems, ;-separated> <test target>...
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
subsystems=$1
shift
build=${ZRUTILS_TSAN_BUILD_DIR:-$root/build-tsan}
"$root/scripts/setup.sh"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DZRUTILS_SANITIZE=thread \
    -DZRUTILS_BUILD_TOUR=OFF -DZRUTILS_SUBSYSTEMS="$subsystems" >/dev/null
cmake --build "$build" -j"$(nproc)" --target "$@"
cd "$build"
export TSAN_OPTIONS="suppressions=$root/tests/tsan.supp ${TSAN_OPTIONS:-}"
ctest --output-on-failure --timeout 900 -R "^($(IFS='|'; echo "$*"))\$"
