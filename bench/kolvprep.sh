#!/usr/bin/env bash
# kolvprep's rewrite against kolv alone: on the million-row export with a
# header line and a quoted text column (quoted.csv), times
#
#   kolvprep --text OPTIONS quoted.csv | kolv quoted.cmd
#
# against kolv alone on the same records without the header and the quotes
# (plain.csv, converted with the same command file), round by round, and
# prints the medians and their ratio (the target is at most 1.3). Both data
# sets must be the same bytes. Builds in build-bench/ (Release) like run.sh.
#
#   bench/kolvprep.sh [-r RUNS] [-n ROWS]   (defaults: 5 runs, 1,000,000 rows)
set -euo pipefail

runs=5
rows=1000000
while getopts "r:n:" opt; do
  case $opt in
    r) runs=$OPTARG ;;
    n) rows=$OPTARG ;;
    *) echo "usage: bench/kolvprep.sh [-r RUNS] [-n ROWS]" >&2; exit 2 ;;
  esac
done

repo=$(cd "$(dirname "$0")/.." && pwd)
build=${KOLV_BENCH_BUILD:-$repo/build-bench}
gen=()
command -v ninja > /dev/null && gen=(-G Ninja)
[[ -f $build/CMakeCache.txt ]] && gen=()
echo "== building kolv, kolvprep and gen_corpus (Release) in $build"
log=$build/kolvprep-build.log
mkdir -p "$build"
if ! { cmake -S "$repo" -B "$build" "${gen[@]}" -DCMAKE_BUILD_TYPE=Release -DKOLV_BENCH=ON -DKOLV_TESTS=OFF &&
        cmake --build "$build" -j 2 --target kolv kolvprep gen_corpus; } > "$log" 2>&1; then
  tail -n 30 "$log" >&2
  echo "bench/kolvprep.sh: the build failed (whole log: $log)" >&2
  exit 1
fi
rm -f "$log"

base=${TMPDIR:-/tmp}
[[ -d /dev/shm ]] && base=/dev/shm
work=$(mktemp -d "$base/kolvprep-bench.XXXXXX")
trap 'rm -rf "$work"' EXIT
cd "$work"
export PATH=$build:$PATH
echo "== writing the corpus ($rows rows) in $work"
"$build/bench/gen_corpus" . "$rows"
rm -f soft.txt comma.csv mixed.txt packed.txt long.txt

kolvprep --name quoted quoted.csv > report.txt 2> /dev/null
command=$(tail -n 1 report.txt)
echo "== kolvprep quoted.csv printed: $command"
sed 's/^INPUT .*/INPUT plain.csv;/; s/^OUTPUT .*/OUTPUT plain.dat;/' quoted.cmd > plain.cmd

median() { sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }
# Each run's wall time and CPU time (user + system, both processes of the
# pipeline): on a machine whose other core is busy the pipeline cannot run
# its two halves side by side, and the CPU time tells what it costs.
: > t_pipe
: > t_alone
: > c_pipe
: > c_alone
for (( r = 1; r <= runs; r++ )); do
  /usr/bin/time -f "%e %U %S" -o tp bash -c "{ $command -noc; } > /dev/null 2>&1"
  /usr/bin/time -f "%e %U %S" -o ta kolv plain.cmd -noc > /dev/null
  awk '{ print $1 > "/dev/stderr"; print $2 + $3 }' tp 2>> t_pipe >> c_pipe
  awk '{ print $1 > "/dev/stderr"; print $2 + $3 }' ta 2>> t_alone >> c_alone
done
cmp quoted.dat plain.dat || { echo "bench/kolvprep.sh: the two data sets differ" >&2; exit 1; }

size=$(stat -c %s quoted.csv)
pipe=$(median < t_pipe)
alone=$(median < t_alone)
cpipe=$(median < c_pipe)
calone=$(median < c_alone)
/usr/bin/time -f "%e %U %S" -o tt bash -c "{ ${command%% | kolv*}; } > /dev/null 2>&1"
read -r twall tuser tsys < tt
printf '%-46s %7.3f s wall %7.3f s CPU  %7.1f MB/s\n' "kolvprep --text ... | kolv (median of $runs)" \
  "$pipe" "$cpipe" "$(echo "$size / $pipe / 1000000" | bc -l)"
printf '%-46s %7.3f s wall %7.3f s CPU  %7.1f MB/s\n' "kolv alone on plain.csv (median of $runs)" \
  "$alone" "$calone" "$(echo "$(stat -c %s plain.csv) / $alone / 1000000" | bc -l)"
printf '%-46s %7.3f s wall %7.3f s CPU  %7.1f MB/s\n' "kolvprep --text alone (one run)" \
  "$twall" "$(echo "$tuser + $tsys" | bc -l)" "$(echo "$size / $twall / 1000000" | bc -l)"
printf 'ratio pipeline / kolv alone: %.2f wall, %.2f CPU (target: at most 1.3 wall)\n' \
  "$(echo "$pipe / $alone" | bc -l)" "$(echo "$cpipe / $calone" | bc -l)"
echo "load average while measuring: $(cut -d' ' -f1-3 /proc/loadavg) on $(nproc) cores"
