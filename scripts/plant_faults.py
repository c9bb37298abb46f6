#!/usr/bin/env python3
"""Plants small faults into the production code one at a time and records which the tests catch.

Each fault is an exact text replacement in one production source: a wrong coefficient or
rounding constant, a swapped channel, an off-by-one in a row tail, a skipped invalidation, a
reference not taken or not dropped, and so on. For every fault the script builds the default
preset (incrementally), runs ctest, and writes a markdown table: caught (some test failed),
MISSED (every test passed), build error (the fault does not compile) or not found (the search
text is gone; the table needs updating after a refactor).

The faults are planted into a scratch copy of the tree (under build/plant_faults/ by default),
so the working tree is never touched; --in-place plants into the tree itself and restores each
file afterwards, also on an interrupt.

  scripts/plant_faults.py                       # all faults, table to build/plant_faults/results.md
  scripts/plant_faults.py --only K01,O03        # a few
  scripts/plant_faults.py --out docs/x.md       # table elsewhere
"""
import argparse
import contextlib
import json
import os
import shutil
import signal
import subprocess
import sys
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
PRODUCTION_DIRS = ["include", "liblmxcore", "platform", "log_utils", "tools", "logging_module", "host"]

# (id, file (a hint: the text is looked up in every production source when it moved), search, replacement,
#  description)
# Faults in headers that nearly every source includes cost a near-full rebuild each;
# they run only with --with-headers.
EXPENSIVE = {"O09", "O10", "O11", "O13", "L01"}

FAULTS = [
    # Pixel kernels: the colour formulas, channel orders, row tails and plane loops.
    ("K01", "liblmxcore/src/kernels/ycc_math.h", "kVToRed = 104595;", "kVToRed = 104596;",
     "BT.601 decode: V-to-red coefficient one too large (scalar reference)"),
    ("K02", "liblmxcore/src/kernels/ycc_math.h", "(66 * r + 129 * g + 25 * b + 128) >> 8",
     "(66 * r + 129 * g + 25 * b + 127) >> 8", "BT.601 encode: luma rounding constant 127 instead of 128"),
    ("K03", "liblmxcore/src/kernels/row_avx512_decode.h", "kGreenOffset = (25690 + 53281) * 128",
     "kGreenOffset = (25690 + 53280) * 128", "AVX-512 decode: green offset built from a wrong coefficient"),
    ("K04", "liblmxcore/src/kernels/row_c_rgb.cpp", "kGreyWeightsRGB[3] = {0.299f, 0.587f, 0.114f}",
     "kGreyWeightsRGB[3] = {0.114f, 0.587f, 0.299f}", "grey of RGB order weighs red and blue swapped"),
    ("K05", "liblmxcore/src/kernels/row_any.h",
     "kBody(in, out, kBlock, extra...);\n  std::memcpy(dst + static_cast<ptrdiff_t>(whole) * kDstBpp, out, static_cast<size_t>(rest) * kDstBpp);",
     "kBody(in, out, kBlock, extra...);\n  std::memcpy(dst + static_cast<ptrdiff_t>(whole) * kDstBpp, out, static_cast<size_t>(rest - 1) * kDstBpp);",
     "SIMD row tail: last pixel of a partial block not copied back (off by one)"),
    ("K06", "liblmxcore/src/kernels/row_c_yuv.cpp", "src[1] - 128, src[-1] - 128", "src[1] - 128, src[1] - 128",
     "YUY2 decode, odd width: lone last pixel takes U as V"),
    ("K07", "liblmxcore/src/kernels/convert_yuv.cpp", "if (end & 1) k.yuy2_to_y8(",
     "if (end & 2) k.yuy2_to_y8(", "YUY2 -> NV12, odd height: last luma row skipped"),
    ("K08", "liblmxcore/src/kernels/convert_yuv.cpp", "out[4 * i + 1] = 128;", "out[4 * i + 1] = 127;",
     "NV12 -> YUY2, one row: neutral chroma off by one"),
    ("K09", "liblmxcore/src/kernels/row_avx2.cpp", "shift >= 16 ? 0 : 0xFFFF >> shift", "shift >= 16 ? 0 : 0xFFFE >> shift",
     "AVX2 depth shift: saturation limit one too low"),
    ("K10", "liblmxcore/src/kernels/row_c_depth.cpp", "out = static_cast<uint16_t>(v + 0.5f);",
     "out = static_cast<uint16_t>(v);", "float -> depth: rounding replaced by truncation (scalar)"),
    ("K11", "liblmxcore/src/kernels/row_c_depth.cpp", "static_cast<uint16_t>(src_y8[x] * 257)",
     "static_cast<uint16_t>(src_y8[x] * 256)", "Y8 -> Y16 widening multiplies by 256 instead of 257"),
    ("K12", "liblmxcore/src/kernels/convert_geometry.cpp", "case 2:\n      return k.mirror2;",
     "case 2:\n      return k.mirror1;",
     "mirror of 2-byte pixels uses the 1-byte row"),
    ("K13", "liblmxcore/src/kernels/dispatch.cpp", "k.rgb_to_y8 = RGBToY8Row_Any_AVX512;",
     "k.rgb_to_y8 = BGRToY8Row_Any_AVX512;", "dispatch: AVX-512 RGB grey slot given the BGR row"),
    ("K14", "liblmxcore/src/kernels/convert_geometry.cpp", "if (src_pitch == row_bytes && dst_pitch == row_bytes) {",
     "if (src_pitch == row_bytes) {", "plane copy: whole-plane fast path ignores the destination pitch"),
    ("K15", "liblmxcore/src/image/coreaccel_emu.cpp", "kRowAlignment);", "kRowAlignment / 2);",
     "system-memory image: pitch rounded up wrongly (alignment)"),
    ("K16", "liblmxcore/src/kernels/row_avx512_decode.h", "constexpr int32_t kRedOffset = -104595 * 128 - 1187776;",
     "constexpr int32_t kRedOffset = -104595 * 128 - 1187776 + 32768;",
     "AVX-512 decode: rounding half of the red offset added twice"),
    # Image and audio objects: access rules, invalidation, references, routing.
    ("O01", "liblmxcore/src/image/coreaccel_manager.cpp", "if (!Traits::IsAttachable(key)) entry.valid = 0;",
     "if (false) entry.valid = 0;", "a write does not invalidate the other formats' buffers"),
    ("O02", "liblmxcore/src/image/coreaccel_manager.cpp", "for (auto& [key, entry] : buffers) entry.valid = 0;\n",
     "\n", "InvalidateData keeps every buffer valid"),
    ("O03", "liblmxcore/src/image/coreaccel_manager.cpp", "    return sts;\n  }\n  AddRef();",
     "    return sts;\n  }\n", "an acquisition does not take a reference"),
    ("O04", "liblmxcore/src/image/coreaccel_manager.cpp", "destroys the lock too.\n  Release();",
     "destroys the lock too.\n", "a release of access does not drop its reference"),
    ("O05", "liblmxcore/src/image/coreaccel_manager.cpp", "kMaxIntermediatePasses = 3;", "kMaxIntermediatePasses = 1;",
     "pass limit: no conversion through an intermediate format"),
    ("O06", "liblmxcore/src/image/coreaccel_manager.cpp", "if (writing) m_bWriteFinished = false;", "",
     "a write access does not block other accesses"),
    ("O07", "liblmxcore/src/image/coreaccel_manager.cpp", "if (access & BASE::ACCESS_WRITE) native->valid = 1;\n", "\n",
     "side data written is never marked valid"),
    ("O08", "liblmxcore/src/image/coreaccel_manager.cpp", "if (id == kMirrorPropertyId && !(value == 0.0f))",
     "if (id == kMirrorPropertyId && (value == 0.0f))", "mirroring property read the wrong way round"),
    ("O09", "include/core_metadata.h", "Base*& slot = instances[id];\n      reference->AddRef();",
     "Base*& slot = instances[id];\n", "metadata: an attached counted object is not referenced"),
    ("O10", "include/core_metadata.h", "LMX_CHECK(size >= md->size, LMX_STATUS_HANDLE_INVALID);",
     "LMX_CHECK(size > md->size, LMX_STATUS_HANDLE_INVALID);", "metadata: a buffer of the exact size is refused"),
    ("O11", "include/core_metadata.h", "kFirstUid = 0x81001;", "kFirstUid = 0x81000;",
     "metadata: first free identifier off by one"),
    ("O12", "include/lmximage.h",
     "  virtual int64_t QueryTimeStamp() = 0;\n  virtual Status SetTimeStamp(int64_t timeStamp) = 0;",
     "  virtual Status SetTimeStamp(int64_t timeStamp) = 0;\n  virtual int64_t QueryTimeStamp() = 0;",
     "slot order: image time-stamp query and set swapped"),
    ("O13", "include/lmxlogging.h", "  virtual bool IsLevelEnabled(int32_t level) = 0;\n  virtual int32_t QueryLevel() = 0;",
     "  virtual int32_t QueryLevel() = 0;\n  virtual bool IsLevelEnabled(int32_t level) = 0;",
     "slot order: logging level query and test swapped"),
    ("O14", "liblmxcore/src/export_table.cpp", "&g_allocatorEntry,\n    &CreateScheduler",
     "&g_audioConverterEntry,\n    &CreateScheduler", "export table: the allocator entry left out of the list"),
    ("O15", "liblmxcore/src/image/coreaccel_emu.cpp", "const size_t alignment = *size < kPageAlignedFrom ? 64 : 4096;",
     "const size_t alignment = *size < kPageAlignedFrom ? 16 : 4096;", "small planes aligned to 16 bytes only"),
    # Scheduler and sync points.
    ("S01", "liblmxcore/src/scheduler/corescheduler_syncpoint.cpp",
     "for (void* output : outputs) masterState_->failedOutputs.Erase(output);", "",
     "a destroyed sync point leaves its outputs' failure records behind"),
    ("S02", "liblmxcore/src/scheduler/corescheduler_requests.cpp", "if (outputs[i]) s.failedOutputs.Erase(outputs[i]);", "",
     "producing an output again does not clear its failure record"),
    ("S03", "liblmxcore/src/scheduler/corescheduler_syncpoint.cpp", "const Status sts = sp->CurrentStatus();\n      if (sts < 0) {",
     "const Status sts = sp->CurrentStatus();\n      if (sts != 0) {",
     "wait-all combines statuses wrongly: a warning counts as the error"),
    ("S04", "liblmxcore/src/scheduler/corescheduler_requests.cpp", "ready.Add(request->callback);\n        request->callback = nullptr;",
     "ready.Add(request->callback);", "a consumer is called twice after an error"),
    ("S05", "liblmxcore/src/scheduler/corescheduler_syncpoint.cpp", "<= platform::kMaximumWaitObjects;",
     "< platform::kMaximumWaitObjects;", "wait limit off by one"),
    ("S06", "liblmxcore/src/scheduler/corescheduler_requests.cpp", "if (!request) SubmitTask(cb, lateFailure);", "",
     "a consumer of outputs that are not pending is never called"),
    # Status checks, logging bootstrap, registry.
    ("L01", "include/lmxutils.h", "if (sts >= 0) return false;\n  if (ErrorEnabled()) LogCallFailed",
     "if (sts == 0) return false;\n  if (ErrorEnabled()) LogCallFailed", "call check treats a warning as a failure"),
    ("L02", "log_utils/include/lmx_loggers.h", "return level >= threshold_.load", "return level > threshold_.load",
     "logger level comparison: the threshold level itself is dropped"),
    ("L03", "log_utils/src/log_bootstrap.cpp", "{kLoggingKey, L\"ConfigFile\", false}",
     "{kLoggingKey, L\"ConfigFiles\", false}", "registry value name of the configuration file misspelt"),
    ("L04", "log_utils/src/log_bootstrap.cpp", "{L\"WARN\", LOG_LEVEL_WARN}", "{L\"WARNING\", LOG_LEVEL_WARN}",
     "level name WARN not recognised"),
    ("L05", "log_utils/src/log_bootstrap.cpp", "{kDispatchKey, L\"LocalRuntime\", true}",
     "{kDispatchKey, L\"LocalRuntme\", true}", "registry value name of the local runtime misspelt"),
    # Audio.
    ("A01", "liblmxcore/src/dsp/audio_kernels_avx2.cpp", "_mm256_packs_epi32(_mm256_cvtps_epi32(a), _mm256_cvtps_epi32(b))",
     "_mm256_packs_epi32(_mm256_cvttps_epi32(a), _mm256_cvttps_epi32(b))",
     "float -> PCM (AVX2): round-half-even replaced by truncation"),
    ("A02", "liblmxcore/src/dsp/audio_kernels_c.cpp", "return static_cast<int16_t>(std::nearbyint(scaled));",
     "return static_cast<int16_t>(scaled);", "float -> PCM (scalar): round-half-even replaced by truncation"),
    ("A03", "liblmxcore/src/dsp/audio_kernels_avx2.cpp",
     "a = _mm256_srai_epi32(_mm256_add_epi32(a, _mm256_srli_epi32(a, 31)), 1);", "a = _mm256_srai_epi32(a, 1);",
     "stereo mix (AVX2): halves rounded down instead of toward zero"),
    ("A04", "liblmxcore/src/dsp/resampler.cpp", "return static_cast<int16_t>(std::lround(y));",
     "return static_cast<int16_t>(y);", "resampler output rounding replaced by truncation"),
    ("A05", "liblmxcore/src/audio/audio_converter.cpp", "history = kConverterPresets.history;",
     "history = kConverterPresets.history / 2;",
     "converter preset: filter history halved"),
    ("A06", "liblmxcore/src/dsp/audio_kernels_c.cpp", "dst[f] = static_cast<int16_t>(static_cast<int32_t>(sum) / channels);",
     "dst[f] = static_cast<int16_t>(static_cast<int32_t>(sum) / (channels + 1));", "N-channel mix divides by N + 1"),
    ("A07", "liblmxcore/src/dsp/polyphase_lanes.h",
     "const int64_t first = (position % phases) * bank.stepInverse % phases;",
     "const int64_t first = (position % phases) % phases;",
     "resampler lanes: a call's first output placed by its phase instead of its index in the period"),
    ("A08", "liblmxcore/src/dsp/resampler_bank.cpp", "[&](const auto& e) { return e->Key() == key; }",
     "[&](const auto& e) { return e->Key().phases == key.phases; }",
     "bank cache: a filter with the same phases served another filter's bank"),
    ("A09", "liblmxcore/src/dsp/polyphase_lanes.h", "x + (base + r * bank.inputs + bank.offsets[g + k]);",
     "x + (base + r * bank.inputs + bank.offsets[g]);",
     "resampler lanes: the second of two groups computed reads the first group's samples"),
    ("A10", "liblmxcore/src/dsp/polyphase_avx512.cpp", "const int32_t reach = (length - 1) / factor / 16 + 1;",
     "const int32_t reach = (length - 1) / factor / 16;",
     "down-sampling body: the streams end before the last outputs' taps"),
    ("A11", "liblmxcore/src/dsp/audio_kernels_avx512.cpp",
     "y = _mm512_maskz_mov_ps(_mm512_cmp_ps_mask(y, y, _CMP_ORD_Q), y);", "",
     "float -> PCM (AVX-512): NaN no longer becomes 0"),
]


# The same faults in the form the code had before a refactor (--rev of an older revision):
# id -> ([hint,] search, replacement); tried when the current search text is not found.
EARLIER_FORMS = {
    "K15": ("kRowAlignment - 1) / kRowAlignment", "kRowAlignment - 2) / kRowAlignment"),
    "K16": ("liblmxcore/src/kernels/row_avx512.cpp", "constexpr int32_t kRedOffset = -104595 * 128 - 1187776;",
            "constexpr int32_t kRedOffset = -104595 * 128 - 1187776 + 32768;"),
    "O15": ("const size_t alignment = size < kPageAlignedFrom ? 64 : 4096;",
            "const size_t alignment = size < kPageAlignedFrom ? 16 : 4096;"),
    "S04": ("ready.push_back(request->callback);\n        request->callback = nullptr;",
            "ready.push_back(request->callback);"),
    "A05": ("history = 32;", "history = 16;"),
    "S05": ("> static_cast<int64_t>(platform::kMaximumWaitObjects)",
            ">= static_cast<int64_t>(platform::kMaximumWaitObjects)"),
}


def production_files():
    for d in PRODUCTION_DIRS:
        base = ROOT_SRC / d
        if base.is_dir():
            for p in base.rglob("*"):
                if p.suffix in (".h", ".cpp", ".c") and p.is_file():
                    yield p


def locate(hint, search):
    """The file that holds `search`: the hinted one, else the one production source that does."""
    path = ROOT_SRC / hint
    if path.is_file() and search in path.read_text():
        return path
    found = [p for p in production_files() if search in p.read_text()]
    return found[0] if len(found) == 1 else None


def locate_fault(fid, hint, search, replacement):
    """(file, search, replacement) of a fault in its current form or, failing that, its earlier one."""
    forms = [(hint, search, replacement)]
    if fid in EARLIER_FORMS:
        earlier = EARLIER_FORMS[fid]
        forms.append(earlier if len(earlier) == 3 else (hint, *earlier))
    for where, text, new in forms:
        path = locate(where, text)
        if path is not None:
            return path, text, new
    return None, search, replacement


def run(cmd, timeout, log):
    with open(log, "a") as out:
        out.write(f"\n$ {' '.join(cmd)}\n")
        out.flush()
        try:
            return subprocess.run(cmd, cwd=ROOT_SRC, stdout=out, stderr=subprocess.STDOUT, timeout=timeout).returncode
        except subprocess.TimeoutExpired:
            out.write("(timed out)\n")
            return 124


_planted = {}  # path -> original text while a fault is planted


def _restore_planted():
    for path, text in _planted.items():
        path.write_text(text)
    _planted.clear()


def _restore_and_exit(signum, _frame):
    _restore_planted()
    sys.exit(128 + signum)


signal.signal(signal.SIGINT, _restore_and_exit)
signal.signal(signal.SIGTERM, _restore_and_exit)


@contextlib.contextmanager
def planted(path, search, replacement):
    """The fault written into `path` for the body; the original text back on every way out."""
    text = path.read_text()
    _planted[path] = text
    try:
        path.write_text(text.replace(search, replacement, 1))
        yield
    finally:
        _restore_planted()


def failed_tests(log):
    lines = Path(log).read_text().splitlines()
    names, inside = [], False
    for line in reversed(lines):
        if line.startswith("The following tests FAILED"):
            inside = True
            break
    if inside:
        start = max(i for i, l in enumerate(lines) if l.startswith("The following tests FAILED"))
        for line in lines[start + 1:]:
            if " - " not in line:
                break
            names.append(line.split(" - ", 1)[1].split(" (")[0].strip())
    return names


def build_and_test(log, ctest_timeout):
    if run(["cmake", "--build", "--preset", "default"], 1800, log) != 0:
        return "build error", []
    Path(log).write_text("")  # keep only the test output for the failure list
    rc = run(["ctest", "--preset", "default", "--timeout", str(ctest_timeout)], 1800, log)
    return ("caught" if rc != 0 else "MISSED"), failed_tests(log)


BEFORE_CMAKE = """
# Added by plant_faults.py --before: the unit tests of another revision, same library.
file(GLOB LMX_BEFORE_SOURCES ${PROJECT_SOURCE_DIR}/tests_before/unit/*.cpp
     ${PROJECT_SOURCE_DIR}/tests_before/unit/${LMX_TEST_PLATFORM}/*.cpp
     ${PROJECT_SOURCE_DIR}/tests_before/support/${LMX_TEST_PLATFORM}/*.cpp)
add_executable(lmxcore_tests_before ${LMX_BEFORE_SOURCES})
target_include_directories(lmxcore_tests_before PRIVATE ${PROJECT_SOURCE_DIR}/tests_before)
target_link_libraries(lmxcore_tests_before PRIVATE lmxcore_internal ${LMX_GTEST_LIBS} ${LMX_GTEST_MAIN} lmx_options)
target_compile_definitions(lmxcore_tests_before PRIVATE
  LMX_FAKE_LOGGING_MODULE="$<TARGET_FILE:lmxlog_fake_good>"
  LMX_FAKE_LOGGING_MODULE_BAD_SIGNATURE="$<TARGET_FILE:lmxlog_fake_bad_signature>")
if(TARGET log_module_child)
  target_compile_definitions(lmxcore_tests_before PRIVATE LMX_LOG_MODULE_CHILD="$<TARGET_FILE:log_module_child>")
endif()
"""

SUITES = {"after": ["lmxcore_tests", "host_tests"], "before": ["lmxcore_tests_before", "host_tests"]}


def run_binary(name, log, timeout):
    """Failed test names of one gtest binary (a crash or time-out counts as a failure of the binary)."""
    path = ROOT_SRC / "build" / "default" / "bin" / name
    try:
        proc = subprocess.run([str(path), "--gtest_brief=1"], cwd=path.parent, capture_output=True, text=True,
                              timeout=timeout, errors="replace")
    except subprocess.TimeoutExpired:
        return {name + " (timed out)"}
    with open(log, "a") as out:
        out.write(proc.stdout[-20000:] + proc.stderr[-5000:])
    failed = set()
    for line in proc.stdout.splitlines():
        if line.startswith("[  FAILED  ]"):
            token = line.split("]", 1)[1].split()[0].rstrip(",") if line.split("]", 1)[1].split() else ""
            if "." in token:
                failed.add(token)
    if proc.returncode != 0 and not failed:
        failed = {f"{name} (exit {proc.returncode})"}
    return failed


def build_and_run_suites(log, timeout, baseline):
    targets = ["lmxcore_tests", "host_tests", "liblmxcore"] + (["lmxcore_tests_before"] if "before" in SUITES else [])
    if run(["cmake", "--build", "--preset", "default", "--target", *targets], 1800, log) != 0:
        return {k: ("build error", []) for k in SUITES}
    results = {}
    failures = {b: run_binary(b, log, timeout) - baseline.get(b, set()) for b in {x for v in SUITES.values() for x in v}}
    for suite, binaries in SUITES.items():
        names = sorted(n for b in binaries for n in failures[b])
        results[suite] = ("caught" if names else "MISSED", names)
    return results, failures


def main():
    global ROOT_SRC
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--only", help="comma-separated fault ids")
    parser.add_argument("--in-place", action="store_true", help="plant into the working tree itself")
    parser.add_argument("--work", default=str(ROOT / "build" / "plant_faults"), help="scratch directory")
    parser.add_argument("--out", help="markdown table (default: <work>/results.md)")
    parser.add_argument("--timeout", type=int, default=60, help="per-test timeout in seconds")
    parser.add_argument("--with-headers", action="store_true", help="also the faults in widely included headers")
    parser.add_argument("--rev", help="plant into this committed revision instead of the working tree")
    parser.add_argument("--before", metavar="REV",
                        help="also build the unit tests of REV as lmxcore_tests_before against the same library and "
                             "run both suites per fault (one build for both; ctest is not used)")
    parser.add_argument("--binaries", action="store_true",
                        help="run the gtest programs (lmxcore_tests, host_tests) instead of ctest: much faster")
    parser.add_argument("--list", action="store_true", help="list the faults and stop")
    args = parser.parse_args()
    os.environ.setdefault("CCACHE_BASEDIR", str(ROOT.parent))

    faults = FAULTS if args.with_headers else [f for f in FAULTS if f[0] not in EXPENSIVE]
    if args.only:
        wanted = set(args.only.split(","))
        faults = [f for f in FAULTS if f[0] in wanted]
    if args.list:
        for fid, hint, _, _, desc in faults:
            print(f"{fid}  {hint}: {desc}")
        return 0

    work = Path(args.work)
    work.mkdir(parents=True, exist_ok=True)
    if args.in_place:
        ROOT_SRC = ROOT
    else:
        # The scratch copy mirrors the tree's layout (sources at its root, build/default below), so
        # the compiler cache's relative paths match the working tree's build.
        ROOT_SRC = work / "src"
        origin = ROOT
        if args.rev:
            # A committed revision instead of the working tree: unpacked beside the copy first.
            origin = work / "rev"
            shutil.rmtree(origin, ignore_errors=True)
            origin.mkdir()
            archive = subprocess.run(["git", "archive", args.rev], cwd=ROOT, check=True, capture_output=True).stdout
            subprocess.run(["tar", "-x", "-C", str(origin)], input=archive, check=True)
            files = [str(p.relative_to(origin)) for p in origin.rglob("*") if p.is_file()]
        else:
            files = subprocess.run(["git", "ls-files", "-co", "--exclude-standard"], cwd=ROOT, check=True,
                                   capture_output=True, text=True).stdout.split("\n")
        # Files of an earlier copy that the tree no longer has go (the build and tests_before stay).
        keep = set(filter(None, files))
        if ROOT_SRC.is_dir():
            for p in list(ROOT_SRC.rglob("*")):
                rel = p.relative_to(ROOT_SRC)
                if p.is_file() and rel.parts[0] not in ("build", "tests_before") and str(rel) not in keep:
                    p.unlink()
        for name in filter(None, files):
            src, dst = origin / name, ROOT_SRC / name
            if not src.is_file():
                continue
            if dst.is_file() and dst.read_bytes() == src.read_bytes():
                continue  # unchanged: keep its time stamp, so the build stays incremental
            dst.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy2(src, dst)
    if args.before:
        archive = subprocess.run(["git", "archive", args.before, "tests"], cwd=ROOT, check=True,
                                 capture_output=True).stdout
        tmp = work / "before_tmp"
        shutil.rmtree(tmp, ignore_errors=True)
        tmp.mkdir()
        subprocess.run(["tar", "-x", "-C", str(tmp)], input=archive, check=True)
        for p in (tmp / "tests").rglob("*"):
            if p.is_file():
                dst = ROOT_SRC / "tests_before" / p.relative_to(tmp / "tests")
                if not (dst.is_file() and dst.read_bytes() == p.read_bytes()):
                    dst.parent.mkdir(parents=True, exist_ok=True)
                    shutil.copy2(p, dst)
        cml = ROOT_SRC / "tests" / "CMakeLists.txt"
        if "lmxcore_tests_before" not in cml.read_text():
            cml.write_text(cml.read_text() + BEFORE_CMAKE)
        return run_both(args, work, faults)
    if args.binaries:
        SUITES.pop("before")
        return run_both(args, work, faults)
    out = Path(args.out) if args.out else work / "results.md"
    log = str(work / "last.log")

    if not (ROOT_SRC / "build" / "default" / "CMakeCache.txt").exists():
        run(["cmake", "--preset", "default"], 600, log)
    Path(log).write_text("")
    result, names = build_and_test(log, args.timeout)
    if result != "MISSED":
        print(f"the unplanted tree does not pass ({result}: {', '.join(names)}); see {log}")
        return 1
    rows = []
    for fid, hint, search, replacement, desc in faults:
        start = time.time()
        path, search, replacement = locate_fault(fid, hint, search, replacement)
        if path is None:
            rows.append((fid, hint, desc, "not found", []))
            print(f"{fid}: not found", flush=True)
            continue
        Path(log).write_text("")
        with planted(path, search, replacement):
            result, names = build_and_test(log, args.timeout)
        rel = str(path.relative_to(ROOT_SRC))
        rows.append((fid, rel, desc, result, names))
        print(f"{fid}: {result} ({time.time() - start:.0f} s) {' '.join(names[:3])}", flush=True)
    # Leave the build matching the restored sources.
    run(["cmake", "--build", "--preset", "default"], 1800, log)

    caught = sum(1 for r in rows if r[3] == "caught")
    with open(out, "w") as f:
        f.write(f"{caught} of {len(rows)} planted faults caught.\n\n")
        f.write("| id | file | fault | result | first failing tests |\n|---|---|---|---|---|\n")
        for fid, rel, desc, result, names in rows:
            shown = ", ".join(names[:3]) + (f" (+{len(names) - 3})" if len(names) > 3 else "")
            f.write(f"| {fid} | {rel} | {desc} | {result} | {shown} |\n")
    print(f"{caught} of {len(rows)} caught; table in {out}")
    return 0


def run_both(args, work, faults):
    out = Path(args.out) if args.out else work / "results.md"
    log = str(work / "last.log")
    if not (ROOT_SRC / "build" / "default" / "CMakeCache.txt").exists() or args.before:
        run(["cmake", "--preset", "default"], 600, log)
    Path(log).write_text("")
    first = build_and_run_suites(log, args.timeout, {})
    if isinstance(first, dict):
        print(f"the unplanted tree does not build; see {log}")
        return 1
    _, baseline = first
    print("baseline failures (ignored):", {k: sorted(v) for k, v in baseline.items() if v}, flush=True)
    rows = []
    for fid, hint, search, replacement, desc in faults:
        start = time.time()
        path, search, replacement = locate_fault(fid, hint, search, replacement)
        if path is None:
            rows.append((fid, hint, desc, {k: ("not found", []) for k in SUITES}))
            print(f"{fid}: not found", flush=True)
            continue
        Path(log).write_text("")
        with planted(path, search, replacement):
            got = build_and_run_suites(log, args.timeout, baseline)
        results = got if isinstance(got, dict) else got[0]
        rows.append((fid, str(path.relative_to(ROOT_SRC)), desc, results))
        print(f"{fid}: " + ", ".join(f"{k} {v[0]}" for k, v in results.items()) + f" ({time.time() - start:.0f} s)",
              flush=True)
        write_both(out, rows)
    # Leave the build matching the restored sources.
    run(["cmake", "--build", "--preset", "default"], 1800, log)
    write_both(out, rows)
    return 0


def write_both(out, rows):
    # Every failing test of every fault, for comparing suites test by test.
    Path(out).with_suffix(".json").write_text(json.dumps(
        {fid: {suite: res[suite][1] for suite in res} for fid, _, _, res in rows}, indent=1))

    def shown(names):
        return ", ".join(names[:2]) + (f" (+{len(names) - 2})" if len(names) > 2 else "")
    with open(out, "w") as f:
        for suite in [k for k in ("before", "after") if k in SUITES]:
            caught = sum(1 for r in rows if r[3][suite][0] == "caught")
            f.write(f"- {suite}: {caught} of {len(rows)} caught\n")
        if "before" in SUITES:
            f.write("\n| id | file | fault | before | after | failing tests after |\n|---|---|---|---|---|---|\n")
            for fid, rel, desc, res in rows:
                f.write(f"| {fid} | {rel} | {desc} | {res['before'][0]} | {res['after'][0]} | "
                        f"{shown(res['after'][1])} |\n")
        else:
            f.write("\n| id | file | fault | result | failing tests |\n|---|---|---|---|---|\n")
            for fid, rel, desc, res in rows:
                f.write(f"| {fid} | {rel} | {desc} | {res['after'][0]} | {shown(res['after'][1])} |\n")


ROOT_SRC = ROOT
if __name__ == "__main__":
    sys.exit(main())
