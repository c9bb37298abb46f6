#!/bin/sh
# Builds the image object benchmark in build/bench (Release, LMX_BUILD_BENCH=ON),
# runs it once and prints, per size, the YUY2 -> BGRA time through the object
# (AcquireAccess + ReleaseAccess on a freshly written image) beside the bare
# kernel and their ratio, then the time of a read access of an already valid
# format. Nine repetitions in random interleaving, medians reported. The ratio
# and the verdicts use the thread's CPU time, which a shared machine's preemption
# does not inflate (the conversion runs on the calling thread); wall-clock
# figures are shown beside.
# Extra arguments go to the benchmark.
set -eu
bench_target=image_object_bench
. "$(dirname "$0")/build_bench.sh"
"$build/bin/image_object_bench" --benchmark_min_time=0.2 --benchmark_repetitions=9 \
  --benchmark_enable_random_interleaving=true --benchmark_report_aggregates_only=true \
  --benchmark_format=json --benchmark_out="$json" --benchmark_out_format=json "$@" >/dev/null
echo "$machine"
python3 - "$json" <<'PY'
import json, sys
stale, valid = {}, {}
for b in json.load(open(sys.argv[1]))["benchmarks"]:
    if b.get("run_type") == "aggregate" and b.get("aggregate_name") != "median":
        continue
    parts = b.get("run_name", b["name"]).split("/")
    times = (b["cpu_time"], b["real_time"])
    if parts[0] == "YUY2ToBGRA":
        stale.setdefault(f"{parts[2]}x{parts[3]}", {})[parts[1]] = times  # microseconds
    elif parts[0] == "Valid":
        valid[parts[1]] = times  # nanoseconds
print(f"{'YUY2 -> BGRA':<14}{'size':>10}{'object us':>11}{'kernel us':>11}{'object/kernel':>15}"
      f"{'wall: obj us':>14}{'kernel us':>11}{'ratio':>7}  target <= 1.10")
for size, t in sorted(stale.items(), key=lambda kv: [int(n) for n in kv[0].split("x")]):
    if "Object" in t and "Kernel" in t:
        (oc, ow), (kc, kw) = t["Object"], t["Kernel"]
        print(f"{'':<14}{size:>10}{oc:>11.1f}{kc:>11.1f}{oc / kc:>15.3f}{ow:>14.1f}{kw:>11.1f}{ow / kw:>7.3f}  "
              f"{'met' if oc / kc <= 1.10 else 'NOT met'}")
for fmt, (cpu, wall) in sorted(valid.items()):
    print(f"valid {fmt} read access: {cpu:.0f} ns (wall {wall:.0f} ns)  target < 1000 ns  "
          f"{'met' if cpu < 1000 else 'NOT met'}")
PY
