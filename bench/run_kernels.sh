#!/bin/sh
# Builds the kernel benchmark in build/bench (Release, LMX_BUILD_BENCH=ON), runs
# it once and prints, per conversion and size, the time of each variant and the
# ratios: ours (fastest variant) against libyuv and against memcpy of the larger
# plane (above 1 means we are slower) and each SIMD variant's speed-up over C.
# Extra arguments go to the benchmark (e.g. --benchmark_filter=YUY2); with
# --benchmark_repetitions=N each time is the fastest of the N (on a shared
# machine the least disturbed), best with --benchmark_enable_random_interleaving.
set -eu
bench_target=kernels_bench
. "$(dirname "$0")/build_bench.sh"
"$build/bin/kernels_bench" --benchmark_min_time=0.2 --benchmark_format=json --benchmark_out="$json" \
  --benchmark_out_format=json "$@" >/dev/null
echo "$machine"
python3 - "$json" <<'PY'
import json, sys
from collections import OrderedDict
rows = OrderedDict()
for b in json.load(open(sys.argv[1]))["benchmarks"]:
    if b.get("run_type") == "aggregate":
        continue
    conv, size, variant = b["name"].split("/")[:3]
    times = rows.setdefault((conv, size), {})  # microseconds; the fastest of repetitions
    times[variant] = min(times.get(variant, b["real_time"]), b["real_time"])
cols = ["C", "SSSE3", "AVX2", "AVX512"]
# Time ratios: ours (the fastest variant) over libyuv and over memcpy of the
# larger plane; above 1 means we are slower.
print(f"{'conversion':<14}{'size':>10}" + "".join(f"{c + ' us':>11}" for c in cols) +
      f"{'libyuv us':>11}{'ours/libyuv':>13}{'memcpy us':>11}{'ours/memcpy':>13}{'SSSE3/C':>9}{'AVX2/C':>8}{'AVX512/C':>10}")
def pair(t, ours, key):
    return f"{t[key]:>11.1f}{ours / t[key]:>13.2f}" if key in t else f"{'-':>11}{'-':>13}"
for (conv, size), t in rows.items():
    ours = min(t[c] for c in cols if c in t)
    cells = "".join(f"{t[c]:>11.1f}" if c in t else f"{'-':>11}" for c in cols)
    speedups = "".join(f"{t['C'] / t[c]:>{w}.1f}" if c in t else f"{'-':>{w}}" for c, w in (("SSSE3", 9), ("AVX2", 8), ("AVX512", 10)))
    print(f"{conv:<14}{size:>10}{cells}{pair(t, ours, 'libyuv')}{pair(t, ours, 'memcpy')}{speedups}")
PY
