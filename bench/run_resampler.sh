#!/bin/sh
# Builds the resampler benchmark with the bench preset (the default build type), runs
# the stream and chunked benchmarks (five repetitions, interleaved, so that a burst of load on
# a shared machine hits every implementation alike) and prints one table: rate
# pair, implementation, million output samples per second of CPU time (the best
# repetition), SNR at 997 Hz and, for 48000 -> 16000, the rejection of a 10 kHz
# tone. Then the two speed targets:
# our best variant against soxr HQ (with its SNR against the scalar reference) and
# ConvertAudio against the bare resampler of the same variant.
# Extra arguments go to the benchmark (e.g. --benchmark_filter=Stream/48000).
set -eu
bench_target=resampler_bench
. "$(dirname "$0")/build_bench.sh"
"$build/bin/resampler_bench" --benchmark_filter='^(Stream|Chunked)/' --benchmark_min_time=0.2 --benchmark_repetitions=5 \
  --benchmark_enable_random_interleaving=true --benchmark_format=json \
  --benchmark_out="$json" --benchmark_out_format=json "$@" >/dev/null 2>&1
echo "$machine"
python3 - "$json" <<'PY'
import json, sys
from collections import OrderedDict
rows = OrderedDict()
chunked = {}
for b in json.load(open(sys.argv[1]))["benchmarks"]:
    if b.get("error_occurred") or b.get("run_type") == "aggregate":
        continue
    if b["name"].startswith("Chunked/"):
        _, pair, impl = b["name"].split("/")[:3]
        rate = b["outputs"] / (b["real_time"] * 1e-3) / 1e6  # manual time: the timed calls only, in ms
        best = chunked.setdefault(pair, {}).get(impl)
        if best is None or rate > best[0]:
            chunked[pair][impl] = (rate, b["snr_db"])
        continue
    _, pair, impl = b["name"].split("/")[:3]
    seconds = b["cpu_time"] * {"ms": 1e-3, "us": 1e-6, "ns": 1e-9, "s": 1.0}[b["time_unit"]]
    rate = b["outputs"] / seconds / 1e6
    best = rows.setdefault(pair, OrderedDict()).get(impl)
    if best is None or rate > best[0]:
        rows[pair][impl] = (rate, b["snr_db"], b.get("alias_db"))
# Registration order (the repetitions ran interleaved).
pair_order = ["48000_16000", "44100_48000", "16000_48000"]
impl_order = ["ours_scalar", "ours_AVX2_FMA", "ours_AVX512", "ConvertAudio", "speexdsp_q5", "speexdsp_q10", "soxr_HQ",
              "soxr_VHQ", "libsamplerate_best", "libsamplerate_fastest"]
def order(names, known):
    return sorted(names, key=lambda name: known.index(name) if name in known else len(known))
rows = OrderedDict((pair, OrderedDict((impl, rows[pair][impl]) for impl in order(rows[pair], impl_order)))
                   for pair in order(rows, pair_order))
print(f"{'rate pair':<13}{'implementation':<23}{'M samples/s':>12}{'SNR dB':>9}{'alias dB':>10}")
for pair, impls in rows.items():
    for impl, (rate, snr, alias) in impls.items():
        alias_cell = f"{alias:>10.1f}" if alias is not None else f"{'-':>10}"
        print(f"{pair.replace('_', '->'):<13}{impl:<23}{rate:>12.1f}{snr:>9.1f}{alias_cell}")
print()
for pair, impls in rows.items():
    fast = [name for name in impls if name.startswith("ours_") and name != "ours_scalar"]
    best = max(fast, key=lambda name: impls[name][0]) if fast else "ours_scalar"
    ours, soxr, ref, conv = impls[best], impls["soxr_HQ"], impls["ours_scalar"], impls["ConvertAudio"]
    speed_ok = ours[0] >= 2 * soxr[0] and abs(ours[1] - ref[1]) <= 1.0
    conv_ok = conv[0] >= 0.8 * ours[0]
    print(f"{pair.replace('_', '->')}: {best} / soxr_HQ = {ours[0] / soxr[0]:.2f}x (target 2x), SNR {ours[1] - ref[1]:+.2f} dB "
          f"vs scalar: {'met' if speed_ok else 'NOT met'}; ConvertAudio / {best} = {conv[0] / ours[0]:.2f}x "
          f"(target 0.8x): {'met' if conv_ok else 'NOT met'}")
print()
print("480-frame chunks, time inside the calls only (M output samples/s):")
print("| rate pair | ConvertAudio | soxr HQ | ratio (target 2x) | SNR ours / soxr dB |")
print("|---|---|---|---|---|")
for pair in pair_order:
    if pair in chunked and {"ConvertAudio", "soxr_HQ"} <= chunked[pair].keys():
        ours, soxr = chunked[pair]["ConvertAudio"], chunked[pair]["soxr_HQ"]
        print(f"| {pair.replace('_', ' -> ')} | {ours[0]:.0f} | {soxr[0]:.0f} | {ours[0] / soxr[0]:.2f} | "
              f"{ours[1]:.1f} / {soxr[1]:.1f} |")
PY
