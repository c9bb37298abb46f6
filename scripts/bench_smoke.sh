#!/usr/bin/env bash
# CI's smoke run of the benchmarks: builds them with the bench preset (the default
# build type plus the benchmarks) and runs every benchmark program once with a tiny
# minimum time, so they keep compiling and running (JSON output: some programs report a
# counter in only some of their runs, which the CSV reporter refuses). No timing is checked here; the
# figures come from the bench/run_*.sh scripts.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh build bench tool python
cmake --preset bench >/dev/null
cmake --build --preset bench
for program in build/bench/bin/*_bench; do
  echo "== $program"
  "$program" --benchmark_min_time=0.001 --benchmark_format=json >/dev/null
done
# The Python benchmark beside OpenCV, when the module was built (with the interpreter CMake chose).
python=$(sed -n 's/^Python3_EXECUTABLE:FILEPATH=//p' build/bench/CMakeCache.txt)
if [ -n "$python" ] && ls build/bench/python/lmxcore*.so >/dev/null 2>&1; then
  echo "== bench/python_bench.py"
  PYTHONPATH=build/bench/python "$python" bench/python_bench.py --smoke >/dev/null
fi
