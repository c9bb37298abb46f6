#!/bin/sh
# Builds the frame benchmark with the bench preset, runs it once (three repetitions,
# interleaved) and prints, per route and size, the best of three per-frame CPU
# time of each way: a new image per frame, the same with the plane cache off, one
# reused image, and libyuv into reused buffers, with each way's ratio to libyuv
# (ours / libyuv: below 1 we are faster). Then the resident set left after 10,000
# new images of mixed sizes beside the cache's bound and the working set.
# CPU time: the whole path runs on the calling thread, page faults included.
# Extra arguments go to the benchmark.
set -eu
bench_target=frame_bench
. "$(dirname "$0")/build_bench.sh"
"$build/bin/frame_bench" --benchmark_min_time=0.2 --benchmark_repetitions=3 \
  --benchmark_enable_random_interleaving=true \
  --benchmark_format=json --benchmark_out="$json" --benchmark_out_format=json "$@" >/dev/null
echo "$machine"
python3 - "$json" <<'PY'
import json, sys
best, rss = {}, None
for b in json.load(open(sys.argv[1]))["benchmarks"]:
    if b.get("run_type") == "aggregate":
        continue
    name = b.get("run_name", b["name"])
    if name.startswith("Mixed/RSS"):
        rss = b if rss is None or b["rss_growth_MB"] > rss["rss_growth_MB"] else rss
        continue
    route, size, way = name.split("/")[:3]
    key = (route, size)
    best.setdefault(key, {})[way] = min(best.get(key, {}).get(way, float("inf")), b["cpu_time"])
print("| route | size | new image us | cache off us | reused us | libyuv us | new / libyuv | reused / libyuv | cache off / libyuv |")
print("|---|---|---|---|---|---|---|---|---|")
for (route, size), t in best.items():
    a = t["Anchor"]
    print(f"| {route} | {size} | {t['New']:.0f} | {t['NewNoCache']:.0f} | {t['Reused']:.0f} | {a:.0f} | "
          f"{t['New'] / a:.2f} | {t['Reused'] / a:.2f} | {t['NewNoCache'] / a:.1f} |")
if rss:
    bound, ws = rss["cache_bound_MB"], rss["working_set_MB"]
    print(f"10,000 mixed frames: resident set grew {rss['rss_growth_MB']:.1f} MB (worst of three); cache bound "
          f"{bound:.1f} MB, cached {rss['cached_MB']:.1f} MB, working set {ws:.1f} MB; "
          f"target: at most {bound + 0.1 * ws:.1f} MB")
PY
