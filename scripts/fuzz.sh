#!/usr/bin/env bash
# Builds the libFuzzer targets of fuzz/ with clang, AddressSanitizer and
# UndefinedBehaviorSanitizer, and runs each for a bounded time.
#   scripts/fuzz.sh [seconds per target, default 60] [target...]
# Each target starts from the seeds checked in under fuzz/<subsystem>/corpus/<target>/,
# copied into a working corpus in the build folder: the fuzzer adds its finds there,
# never to the checked-in seeds.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
seconds=${1:-60}
shift || true
build=${ZRUTILS_FUZZ_BUILD_DIR:-$root/build-fuzz}
"$root/scripts/setup.sh"

# Only the subsystems that have fuzz targets are built, with those they build on.
subsystems=$(find "$root/fuzz" -mindepth 2 -maxdepth 2 -name CMakeLists.txt -printf '%h\n' | xargs -n1 basename)
if grep -qx netinfo <<<"$subsystems"; then
    subsystems+=$'\nhttp'
fi
subsystems=$(sort -u <<<"$subsystems" | paste -sd';')
CC=clang CXX=clang++ cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DBUILD_TESTING=OFF -DZRUTILS_BUILD_TOUR=OFF -DZRUTILS_BUILD_FUZZERS=ON \
    -DZRUTILS_SUBSYSTEMS="$subsystems" -DZRUTILS_SANITIZE=address,undefined,fuzzer-no-link >/dev/null
jobs=$(nproc)
[ "$jobs" -gt 2 ] && jobs=2
cmake --build "$build" -j"$jobs"

if [ $# -gt 0 ]; then
    targets=$(for name in "$@"; do echo "$build/fuzz/"*/"$name"; done)
else
    targets=$(find "$build/fuzz" -type f -executable -name 'fuzz_*' | sort)
fi

export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
export QT_QPA_PLATFORM=offscreen
# The targets that write files (archives, JSON files, os-release) do it in TMPDIR: in
# memory they run twice as fast.
if [ -z "${TMPDIR:-}" ] && [ -d /dev/shm ] && [ -w /dev/shm ]; then
    export TMPDIR=/dev/shm
fi
status=0
started=$SECONDS
for target in $targets; do
    name=$(basename "$target")
    corpus="$build/corpus/$name"
    mkdir -p "$corpus"
    seeds=$(find "$root/fuzz" -path "*/corpus/$name" -type d | head -n 1)
    if [ -n "$seeds" ]; then
        cp -n "$seeds"/* "$corpus"/ 2>/dev/null || true
    fi
    echo "fuzz: $name for ${seconds}s ($(find "$corpus" -type f | wc -l) inputs to start from)"
    if ! "$target" -max_total_time="$seconds" -max_len=65536 -rss_limit_mb=2048 -timeout=25 \
        -print_final_stats=1 -artifact_prefix="$build/$name-" "$corpus" 2>"$build/$name.log"; then
        tail -n 60 "$build/$name.log"
        status=1
    else
        grep -E 'stat::number_of_executed_units|Done' "$build/$name.log" | tail -n 2
    fi
done
echo "fuzz: $(wc -w <<<"$targets") targets in $((SECONDS - started))s"
exit $status
