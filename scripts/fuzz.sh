#!/usr/bin/env bash
# Builds the libFuzzer targets of fuzz/ with clang, AddressSanitizer and
# UndefinedBehaviorSanitizer, and runs each for a bounded time.
#   scripts/fuzz.sh [seconds per target, default 60]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
seconds=${1:-60}
build=${ZRUTILS_FUZZ_BUILD_DIR:-$root/build-fuzz}
"$root/scripts/setup.sh"

# Only the subsystems that have fuzz targets are built.
subsystems=$(find "$root/fuzz" -mindepth 2 -maxdepth 2 -name CMakeLists.txt -printf '%h\n' | xargs -n1 basename | sort | paste -sd';')
CC=clang CXX=clang++ cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DBUILD_TESTING=OFF -DZRUTILS_BUILD_TOUR=OFF -DZRUTILS_BUILD_FUZZERS=ON \
    -DZRUTILS_SUBSYSTEMS="$subsystems" -DZRUTILS_SANITIZE=address,undefined,fuzzer-no-link >/dev/null
cmake --build "$build" -j"$(nproc)"

status=0
for target in $(find "$build/fuzz" -type f -executable -name 'fuzz_*' | sort); do
    name=$(basename "$target")
    corpus="$build/corpus/$name"
    mkdir -p "$corpus"
    echo "fuzz: $name for ${seconds}s"
    if ! "$target" -max_total_time="$seconds" -max_len=65536 -rss_limit_mb=2048 -print_final_stats=1 \
        -artifact_prefix="$build/$name-" "$corpus" 2>"$build/$name.log"; then
        tail -n 60 "$build/$name.log"
        status=1
    else
        grep -E 'stat::number_of_executed_units|Done' "$build/$name.log" | tail -n 2
    fi
done
exit $status
