#!/usr/bin/env bash
# CI's smoke run of the benchmarks: builds them with the bench preset (the default
# build type plus the benchmarks) and runs every benchmark program once with a tiny
# minimum time, so they keep compiling and running. No timing is checked here; the
# figures come from the bench/run_*.sh scripts.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh build bench tool
cmake --preset bench >/dev/null
cmake --build --preset bench
for program in build/bench/bin/*_bench; do
  echo "== $program"
  "$program" --benchmark_min_time=0.001 --benchmark_format=csv >/dev/null
done
