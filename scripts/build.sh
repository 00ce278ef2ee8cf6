#!/usr/bin/env bash
# Configures and builds the project: scripts/build.sh <build-dir> [cmake options...]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=$1
shift
"$root/scripts/setup.sh"
cmake -S "$root" -B "$build" -G Ninja "$@" >/dev/null
cmake --build "$build" -j"$(nproc)"
