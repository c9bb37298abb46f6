# Sourced by the run_*.sh scripts after they set `bench_target`: installs the
# benchmark packages, builds that target with the `bench` preset (the default
# preset's build type, RelWithDebInfo, plus the benchmarks: the figures are those
# of the build users get) and sets `root`, `build`, `json` (the results file) and
# `machine` (CPU model and date, the heading of every table).
root=$(cd "$(dirname "$0")/.." && pwd)
build="$root/build/bench"
"$root/scripts/install-deps.sh" build bench tool
(cd "$root" && cmake --preset bench >/dev/null && cmake --build --preset bench --target "$bench_target" >/dev/null)
json="$build/$bench_target.json"
machine="$(grep -m1 'model name' /proc/cpuinfo | sed 's/.*: //'), $(date -u +%Y-%m-%d), build type RelWithDebInfo (bench preset)"
