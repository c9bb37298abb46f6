#!/usr/bin/env bash
# The hardening pass CI runs after the default and asan runs (the asan run already
# checks for leaks: its preset sets detect_leaks=1):
#   0. the library built by clang with its thread-safety analysis, every finding an
#      error (the clang-tsa preset; the locks and what they guard are annotated); then
#      the layout (.clang-format) of every C++ file and the checks of .clang-tidy over
#      that build's sources (library, platform, logging, host kit);
#   1. the suites labelled "concurrency" (tests/CMakeLists.txt: scheduler, sync points,
#      platform events and threads, object model, multi-format images and their I/O,
#      metadata, stress, the soak's short form) under ThreadSanitizer, as the tsan test
#      preset selects them;
#   2. both test programs of the default build under valgrind memcheck, which also
#      sees reads of uninitialised memory, and fails on any definite leak;
#   3. every fuzz target (LMX_FUZZ_TARGETS in fuzz/CMakeLists.txt, found through
#      their corpus tests): its committed corpus replayed, then fuzzed for
#      LMX_FUZZ_SECONDS seconds each (default 60); a failing input is left in
#      build/fuzz/ and belongs in fuzz/corpus/<target>/ once fixed.
# Usage: scripts/hardening.sh        LMX_FUZZ_SECONDS=20 scripts/hardening.sh
set -euo pipefail
cd "$(dirname "$0")/.."
fuzz_seconds="${LMX_FUZZ_SECONDS:-60}"
start=$SECONDS
scripts/install-deps.sh build sanitizers

cmake --preset clang-tsa >/dev/null
cmake --build --preset clang-tsa
git ls-files '*.h' '*.cpp' | xargs clang-format --dry-run -Werror
run-clang-tidy -quiet -p build/clang-tsa -j 2 '/(liblmxcore|platform|log_utils|logging_module|host)/' >build/clang-tsa/tidy.log 2>&1 ||
  { grep -E 'error:|warning:' build/clang-tsa/tidy.log; echo "clang-tidy found the problems above" >&2; exit 1; }
echo "== hardening, thread-safety analysis, layout and lint: $((SECONDS - start)) s"

cmake --preset tsan >/dev/null
cmake --build --preset tsan
ctest --preset tsan
echo "== hardening, tsan: $((SECONDS - start)) s"

cmake --preset default >/dev/null
cmake --build --preset default
for program in lmxcore_tests host_tests; do
  valgrind -q --suppressions=scripts/valgrind.supp --error-exitcode=99 --leak-check=full \
    --errors-for-leak-kinds=definite,indirect --show-leak-kinds=definite,indirect \
    "build/default/bin/$program" --gtest_brief=1
done
echo "== hardening, memcheck: $((SECONDS - start)) s"

cmake --preset fuzz >/dev/null
cmake --build --preset fuzz
ctest --preset fuzz
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
targets="$(ctest --preset fuzz -N | sed -n 's/^ *Test *#[0-9]*: \(.*\)_corpus$/\1/p')"
for target in $targets; do
  # New inputs go to a scratch directory; the committed corpus is only read. The
  # targets' standard output (the library's access diagnostics) is closed.
  mkdir -p "$work/$target"
  if ! "build/fuzz/bin/$target" -max_total_time="$fuzz_seconds" -timeout=30 -rss_limit_mb=2048 -close_fd_mask=1 \
      -artifact_prefix="build/fuzz/$target-" "$work/$target" "fuzz/corpus/$target" >"$work/$target.log" 2>&1; then
    tail -n 80 "$work/$target.log"
    echo "fuzz target $target failed; its input is in build/fuzz/" >&2
    exit 1
  fi
done
echo "== hardening, fuzz (${fuzz_seconds} s per target): $((SECONDS - start)) s"
