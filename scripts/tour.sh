#!/usr/bin/env bash
# Installs what is needed, builds, and runs the tour: every subsystem of the
# library at work against loopback servers that the tour starts itself.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${ZRUTILS_BUILD_DIR:-$root/build}
"$root/scripts/build.sh" "$build"
QT_QPA_PLATFORM=${QT_QPA_PLATFORM:-offscreen} exec "$build/examples/tour/zrutils-tour" "$@"
