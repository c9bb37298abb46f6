#!/bin/sh
# Builds the image object benchmark with the bench preset (the default build type),
# runs it once and prints, per conversion at 1920x1080, the time through the object
# (write format A, then AcquireAccess read of format B + ReleaseAccess, or an export
# in the mirror mode) beside libyuv's equivalent on bare buffers, and their ratio
# (libyuv time / ours: above 1 we are faster), then the time of a read access of an
# already valid format. Repetitions in random interleaving, medians of CPU time
# (the conversion runs on the calling thread, so preemption on a shared machine
# does not inflate it). Extra arguments go to the benchmark.
set -eu
bench_target=image_object_bench
. "$(dirname "$0")/build_bench.sh"
"$build/bin/image_object_bench" --benchmark_min_time=0.1 --benchmark_repetitions=7 \
  --benchmark_enable_random_interleaving=true --benchmark_report_aggregates_only=true \
  --benchmark_format=json --benchmark_out="$json" --benchmark_out_format=json "$@" >/dev/null
echo "$machine"
python3 - "$json" <<'PY'
import json, sys
pairs, valid = {}, {}
for b in json.load(open(sys.argv[1]))["benchmarks"]:
    if b.get("run_type") == "aggregate" and b.get("aggregate_name") != "median":
        continue
    name, side = b.get("run_name", b["name"]).split("/")[:2]
    if name == "Valid":
        valid[side] = b["cpu_time"]
    else:
        pairs.setdefault(name, {})[side] = b["cpu_time"]
print("| conversion, 1920x1080 | ours us | libyuv us | ratio (libyuv / ours) |")
print("|---|---|---|---|")
for name, t in sorted(pairs.items()):
    if "Object" in t and "Anchor" in t:
        print(f"| {name} | {t['Object']:.0f} | {t['Anchor']:.0f} | {t['Anchor'] / t['Object']:.2f} |")
for fmt, ns in sorted(valid.items()):
    print(f"valid {fmt} read access: {ns:.0f} ns")
PY
