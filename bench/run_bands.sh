#!/bin/sh
# Builds the band benchmark with the bench preset, runs it once and prints, per
# conversion and size, the wall-clock time through the image object on one
# thread and on every thread the library may use (a new image per frame), the
# speed-up, libyuv's time on one thread and the ratio libyuv / all threads (above
# 1 we are faster); the same into a new image per frame (new planes: page
# faults); at 4K, the speed-up of one thread against all on alternate frames of
# one image (the median over neighbouring pairs, steadier than the ratio of two
# medians); the memory ceiling (a 4K plane copied on one thread and on all); and,
# below 4K, the default threshold beside banding forced at any size; and, per
# banded conversion, where the time of the hand-off goes.
# Repetitions in random interleaving, medians of real time: the machine must be
# otherwise idle. Extra arguments go to the benchmark.
set -eu
bench_target=band_bench
. "$(dirname "$0")/build_bench.sh"
"$build/bin/band_bench" --benchmark_min_time=0.2 --benchmark_repetitions=7 \
  --benchmark_enable_random_interleaving=true --benchmark_report_aggregates_only=true \
  --benchmark_format=json --benchmark_out="$json" --benchmark_out_format=json "$@" >/dev/null
echo "$machine, $(nproc) logical processors, load before: $(cut -d' ' -f1-3 /proc/loadavg)"
python3 - "$json" <<'PY'
import json, sys
rows, counters = {}, {}
for b in json.load(open(sys.argv[1]))["benchmarks"]:
    if b.get("run_type") == "aggregate" and b.get("aggregate_name") != "median":
        continue
    pair, size, side = b.get("run_name", b["name"]).split("/")[:3]
    rows.setdefault((pair, size), {})[side] = b["real_time"]
    counters[(pair, size, side)] = b
print("| conversion | size | one thread us | all threads us | speed-up | libyuv us | libyuv / all "
      "| new image per frame: one / all us | speed-up |")
print("|---|---|---|---|---|---|---|---|---|")
for (pair, size), t in rows.items():
    if {"One", "All", "Anchor", "OneNew", "AllNew"} <= t.keys():
        print(f"| {pair} | {size} | {t['One']:.0f} | {t['All']:.0f} | {t['One'] / t['All']:.2f} | "
              f"{t['Anchor']:.0f} | {t['Anchor'] / t['All']:.2f} | {t['OneNew']:.0f} / {t['AllNew']:.0f} | "
              f"{t['OneNew'] / t['AllNew']:.2f} |")
paired = [(pair, size, b["speedup"]) for (pair, size, side), b in counters.items() if side == "Paired" and "speedup" in b]
if paired:
    print()
    print("| conversion | size | speed-up, one thread / all threads on alternate frames (median of the pairs) |")
    print("|---|---|---|")
    for pair, size, speedup in paired:
        print(f"| {pair} | {size} | {speedup:.2f} |")
if ("Memcpy", "3840x2160") in rows:
    t = rows[("Memcpy", "3840x2160")]
    print()
    print(f"Memory ceiling, 33 MB copied in bands: one thread {t['One']:.0f} us, all threads {t['All']:.0f} us, "
          f"speed-up {t['One'] / t['All']:.2f}")
print()
print("| conversion, all threads | size | banded jobs per frame | caller's share of bands | caller's hand-off us "
      "| band thread picks the job up after us |")
print("|---|---|---|---|---|---|")
for (pair, size), t in rows.items():
    c = counters.get((pair, size, "All"), {})
    if c.get("banded", 0) > 0 and "handoff_us" in c:
        print(f"| {pair} | {size} | {c['banded']:.0f} | {c['caller_share']:.2f} | {c['handoff_us']:.0f} | "
              f"{c.get('start_us', float('nan')):.0f} |")
print()
print("| conversion | size | one thread us | banding allowed us | allowed / one | banded at any size us | forced / one |")
print("|---|---|---|---|---|---|---|")
for (pair, size), t in rows.items():
    if {"One", "All", "Forced"} <= t.keys():
        print(f"| {pair} | {size} | {t['One']:.0f} | {t['All']:.0f} | {t['All'] / t['One']:.3f} | {t['Forced']:.0f} | "
              f"{t['Forced'] / t['One']:.2f} |")
PY
