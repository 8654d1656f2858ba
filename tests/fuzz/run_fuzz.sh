#!/usr/bin/env bash
# Builds one fuzz target as a libFuzzer program (clang++, ASan + UBSan) and
# fuzzes it for the given number of seconds, starting from its checked-in
# corpus. New inputs go to a scratch corpus, never into the source tree; an
# input that breaks a check is saved under the build folder and the script
# fails, printing where it is. Add such an input to tests/fuzz/corpus/TARGET/
# once the fault is fixed, so that the ordinary test suite replays it.
#
#   tests/fuzz/run_fuzz.sh TARGET SECONDS     TARGET: command, delimited, packed, kolvprep
#
# Environment: KOLV_FUZZ_BUILD (build folder, default build-fuzz),
# KOLV_FUZZ_CORPUS (scratch corpus folder to keep between runs; default a
# fresh temporary one), KOLV_FUZZ_ARGS (more libFuzzer options).
set -euo pipefail

if [ $# -ne 2 ]; then
  echo "usage: $0 TARGET SECONDS   (TARGET: command, delimited, packed, kolvprep)" >&2
  exit 2
fi
target=$1
seconds=$2
root=$(cd "$(dirname "$0")/../.." && pwd)
build=${KOLV_FUZZ_BUILD:-$root/build-fuzz}
seeds=$root/tests/fuzz/corpus/$target
if [ ! -d "$seeds" ]; then
  echo "$0: no corpus for target '$target' at $seeds" >&2
  exit 2
fi

# Two targets may be fuzzed side by side: one configures and builds at a time.
mkdir -p "$build"
(
  flock 9
  cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_CXX_COMPILER=clang++ -DKOLV_FUZZ=ON >/dev/null
  cmake --build "$build" -j 2 --target "fuzz_$target"
) 9>"$build/.fuzz-build.lock"

scratch=${KOLV_FUZZ_CORPUS:-}
cleanup=
if [ -z "$scratch" ]; then
  scratch=$(mktemp -d /tmp/kolv_corpus_XXXXXX)
  cleanup=$scratch
fi
mkdir -p "$scratch"
artifacts=$build/fuzz-artifacts/$target
mkdir -p "$artifacts"

dict=()
if [ -f "$root/tests/fuzz/$target.dict" ]; then
  dict=(-dict="$root/tests/fuzz/$target.dict")
fi

status=0
# shellcheck disable=SC2086
ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1} \
UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1} \
  "$build/tests/fuzz/fuzz_$target" -max_total_time="$seconds" -timeout=30 \
  -rss_limit_mb=2560 -print_final_stats=1 \
  -artifact_prefix="$artifacts/" "${dict[@]}" ${KOLV_FUZZ_ARGS:-} \
  "$scratch" "$seeds" || status=$?

if [ -n "$cleanup" ]; then rm -rf "$cleanup"; fi
if [ $status -ne 0 ]; then
  echo "$0: fuzz_$target found a failing input; see $artifacts/" >&2
  ls -l "$artifacts" >&2
fi
exit $status
