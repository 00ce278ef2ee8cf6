#!/usr/bin/env bash
# Installs what is needed, builds, and runs the tour: every subsystem of the
# library at work against loopback servers that the tour starts itself.
#   scripts/tour.sh [--qt6] [tour arguments...]
# --qt6 (or ZRUTILS_QT_MAJOR=6 in the environment) takes the Qt 6 build (build-qt6/).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
qt=${ZRUTILS_QT_MAJOR:-5}
if [ "${1:-}" = "--qt6" ]; then
    qt=6
    shift
fi
default=$root/build
[ "$qt" = 6 ] && default=$root/build-qt6
build=${ZRUTILS_BUILD_DIR:-$default}
"$root/scripts/build.sh" "$build" -DZRUTILS_QT_MAJOR="$qt"
QT_QPA_PLATFORM=${QT_QPA_PLATFORM:-offscreen} exec "$build/examples/tour/zrutils-tour" "$@"
