#!/usr/bin/env bash
# Full motion, a trader's screen and press to file, side by side with ffmpeg, in one command:
#   bench/capture/motion.sh [BUILD_DIR]       (default build/release; Release, with the tests)
# Prints the load before and after each part; see bench/README.md for what the figures mean.
set -euo pipefail
root=$(cd "$(dirname "$0")/../.." && pwd)
build=${1:-$root/build/release}
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$build" --parallel "$(nproc)" --target capture_cpu_bench press_to_file_bench encode_cpu_bench velotape
load() { echo "load average: $(cut -d' ' -f1-3 /proc/loadavg)"; }
load
"$build/bench/recorder/encode_cpu_bench" heavy
"$build/bench/recorder/encode_cpu_bench" trader
load
"$build/bench/capture/capture_cpu_bench" --benchmark_filter='pipeline_heavy|pipeline_trader'
load
"$build/bench/capture/press_to_file_bench"
load
# The control command's own start, with no instance, against the program started for the same.
runtime=$(mktemp -d)
trap 'rm -rf "$runtime"' EXIT
XDG_RUNTIME_DIR=$runtime hyperfine -N -i --warmup 3 --runs 30 "$build/src/velotape status" \
  "$build/src/velotape-app status"
load
