#!/usr/bin/env bash
# The cost of the syncs (see kolv(1), KOLV_SYNC): a fresh conversion of
# soft.txt (1,000,000 rows of ten numbers: an 80 MB data set) and an APPEND of
# the same rows onto an 80 MB data set, each timed with syncing on (the
# default) and off (KOLV_SYNC=0), in pairs (on, off, on, off, ...), so that a
# busy moment of the machine falls on both alike. Prints the median wall time
# of each and the median of the pair ratios (on / off).
#
#   bench/sync.sh [-r RUNS] [-d DIR]   (defaults: 7 runs; DIR: a folder of
#                                       build-bench/, that is on the disk of the
#                                       clone; give /dev/shm for tmpfs)
#
# Each APPEND starts from the same 80 MB data set: the file is cut back to its
# first length before each run (the header's count is then stale, which
# changes nothing of the work). The cut is made in both runs of a pair alike.
set -euo pipefail

runs=7
dir=""
while getopts "r:d:" opt; do
  case $opt in
    r) runs=$OPTARG ;;
    d) dir=$OPTARG ;;
    *) echo "usage: bench/sync.sh [-r RUNS] [-d DIR]" >&2; exit 2 ;;
  esac
done

repo=$(cd "$(dirname "$0")/.." && pwd)
build=${KOLV_BENCH_BUILD:-$repo/build-bench}
cmake -S "$repo" -B "$build" -DCMAKE_BUILD_TYPE=Release -DKOLV_BENCH=ON -DKOLV_TESTS=OFF > /dev/null
cmake --build "$build" -j 2 --target kolv gen_corpus > /dev/null
kolv=$build/kolv
work=$(mktemp -d "${dir:-$build}/sync_bench_XXXXXX")
trap 'rm -rf "$work"' EXIT
cd "$work"
"$build/bench/gen_corpus" . 1000000 > /dev/null
rm -f comma.csv mixed.txt packed.txt long.txt
printf 'INPUT soft.txt;\nOUTPUT fresh;\nINVAR x[1:10];\n' > fresh.cmd
printf 'APPEND;\nINPUT soft.txt;\nOUTPUT app;\nINVAR x[1:10];\n' > app.cmd
KOLV_SYNC=0 "$kolv" fresh.cmd -noc
cp fresh.dat app.dat
base=$(stat -c %s app.dat)
sync

# Wall seconds of one run of "$@".
seconds() {
  local t0 t1
  t0=$(date +%s.%N)
  "$@" > /dev/null
  t1=$(date +%s.%N)
  echo "$t1 - $t0" | bc -l
}
median() { sort -g | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }

# Puts the job's output back as it was before the first run, and writes every
# dirty page out, outside the timed part: each timed run starts from a clean
# disk cache, and its syncs write only what the run itself wrote.
prepare() {
  if [[ $1 == append ]]; then truncate -s "$base" app.dat; fi
  sync
}
run() { KOLV_SYNC=$2 "$kolv" "$1.cmd" -noc; }
fresh_job=fresh
append_job=app

fs=$(stat -f -c %T .)
echo "folder $work ($fs), $runs pairs, wall seconds (median) and ratio on/off (median of pairs)"
for job in fresh append; do
  on=()
  off=()
  ratios=()
  cmd=${job}_job
  prepare "$job"
  run "${!cmd}" 1 > /dev/null  # warm-up
  for ((i = 0; i < runs; i++)); do
    prepare "$job"
    a=$(seconds run "${!cmd}" 1)
    prepare "$job"
    b=$(seconds run "${!cmd}" 0)
    on+=("$a")
    off+=("$b")
    ratios+=("$(echo "$a / $b" | bc -l)")
  done
  printf '%-7s synced %.3f s   KOLV_SYNC=0 %.3f s   ratio %.2f\n' "$job" \
    "$(printf '%s\n' "${on[@]}" | median)" "$(printf '%s\n' "${off[@]}" | median)" \
    "$(printf '%s\n' "${ratios[@]}" | median)"
done
