#!/usr/bin/env bash
# Installs what is needed, builds, and runs every test.
#   scripts/test.sh             the normal build against Qt 5 (build/)
#   scripts/test.sh --sanitize  the same suite with AddressSanitizer and
#                               UndefinedBehaviorSanitizer (build-asan/)
#   scripts/test.sh --qt6       the suite built against Qt 6 (build-qt6/); with
#                               --sanitize as well, build-qt6-asan/. ZRUTILS_QT_MAJOR=6
#                               in the environment does the same as --qt6.
# The Qt 6 run also installs the Qt 5 build of the same kind, when there is one,
# beside its own and builds a consumer of each (the consumer_coinstalled test).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
sanitize=0
qt=${ZRUTILS_QT_MAJOR:-5}
for arg in "$@"; do
    case $arg in
    --sanitize) sanitize=1 ;;
    --qt6) qt=6 ;;
    *) echo "usage: $0 [--sanitize] [--qt6]" >&2; exit 2 ;;
    esac
done
suffix=""
[ "$qt" = 6 ] && suffix="-qt6"
if [ $sanitize = 1 ]; then
    build=${ZRUTILS_ASAN_BUILD_DIR:-$root/build$suffix-asan}
    qt5build=$root/build-asan
    options=(-DCMAKE_BUILD_TYPE=Debug -DZRUTILS_SANITIZE=address,undefined -DZRUTILS_BUILD_TOUR=OFF)
else
    build=${ZRUTILS_BUILD_DIR:-$root/build$suffix}
    qt5build=$root/build
    options=()
fi
options+=(-DZRUTILS_QT_MAJOR="$qt")
if [ "$qt" = 6 ]; then
    coinstall=""
    [ -f "$qt5build/CMakeCache.txt" ] && coinstall=$qt5build
    options+=(-DZRUTILS_COINSTALL_BUILD_DIR="$coinstall")
fi
"$root/scripts/build.sh" "$build" "${options[@]}"
cd "$build"
ctest --output-on-failure -j"$(nproc)" --timeout 900
