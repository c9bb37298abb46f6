# Sourced by the run_*.sh scripts after they set `bench_target`: installs the
# benchmark packages, builds that target in build/bench (Release,
# LMX_BUILD_BENCH=ON) and sets `root`, `build`, `json` (the results file) and
# `machine` (CPU model and date, the heading of every table).
root=$(cd "$(dirname "$0")/.." && pwd)
build="$root/build/bench"
"$root/scripts/install-deps.sh" build bench
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release -DLMX_BUILD_BENCH=ON -DLMX_BUILD_TESTS=OFF \
  -DLMX_BUILD_TOOLS=OFF >/dev/null
cmake --build "$build" --target "$bench_target" -j2 >/dev/null
json="$build/$bench_target.json"
machine="$(grep -m1 'model name' /proc/cpuinfo | sed 's/.*: //'), $(date -u +%Y-%m-%d)"
