#!/usr/bin/env bash
# Installs what is needed, builds, and runs every test.
#   scripts/test.sh             the normal build (build/)
#   scripts/test.sh --sanitize  the same suite with AddressSanitizer and
#                               UndefinedBehaviorSanitizer (build-asan/)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${ZRUTILS_BUILD_DIR:-$root/build}
options=()
if [ "${1:-}" = "--sanitize" ]; then
    build=${ZRUTILS_ASAN_BUILD_DIR:-$root/build-asan}
    options=(-DCMAKE_BUILD_TYPE=Debug -DZRUTILS_SANITIZE=address,undefined -DZRUTILS_BUILD_TOUR=OFF)
fi
"$root/scripts/build.sh" "$build" "${options[@]}"
cd "$build"
ctest --output-on-failure -j"$(nproc)" --timeout 900
