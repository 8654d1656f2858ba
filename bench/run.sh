#!/usr/bin/env bash
# The benchmark: builds kolv and the bench tools in Release (in build-bench/),
# writes the corpus into a temporary folder (on /dev/shm when it has room,
# else /tmp; removed at the end), then times every kolv conversion and every
# baseline in the same run, round by round, and prints the median of each
# with MB/s, its ratio to the bare from_chars loop and to the strtod loop over
# the same numbers and to the I/O floor (a loop that only reads the input in
# 128 KiB reads and writes as many bytes as the 8-byte output), the user and
# system time, and the peak resident memory. The table is also appended to
# bench/results.csv, one row per job and run. Every kolv output is
# checked value by value against the strtod loop's doubles.
#
#   bench/run.sh [-r RUNS] [-n ROWS] [-s]   (defaults: 5 runs, 1,000,000 rows)
#
# Reading back: kolvdump --csv and kolvdump's text view (both to /dev/null) of
# the data set that "kolv soft, D" makes are timed in the same rounds and
# printed as ratios to that conversion; the CSV, converted again by kolv,
# must give the same doubles.
#
# Then it converts a 1 GB soft-delimited input once (soft.txt repeated) and
# reports kolv's peak memory there; -s skips that step.
#
# KOLV_BENCH_BUILD names another build folder.
set -euo pipefail

runs=5
rows=1000000
big=1
while getopts "r:n:s" opt; do
  case $opt in
    r) runs=$OPTARG ;;
    n) rows=$OPTARG ;;
    s) big=0 ;;
    *) echo "usage: bench/run.sh [-r RUNS] [-n ROWS] [-s]" >&2; exit 2 ;;
  esac
done

repo=$(cd "$(dirname "$0")/.." && pwd)
build=${KOLV_BENCH_BUILD:-$repo/build-bench}
gen=()
command -v ninja > /dev/null && gen=(-G Ninja)
[[ -f $build/CMakeCache.txt ]] && gen=()

echo "== building kolv and the bench tools (Release) in $build"
mkdir -p "$build"
log=$build/bench-build.log
if ! { cmake -S "$repo" -B "$build" "${gen[@]}" -DCMAKE_BUILD_TYPE=Release -DKOLV_BENCH=ON -DKOLV_TESTS=OFF &&
        cmake --build "$build" -j 2 --target kolv kolvdump gen_corpus strtod_loop fromchars_loop io_floor bench_compare; } > "$log" 2>&1; then
  tail -n 30 "$log" >&2
  echo "bench/run.sh: the build failed (whole log: $log)" >&2
  exit 1
fi
rm -f "$log"
kolv=$build/kolv
kolvdump=$build/kolvdump
bin=$build/bench
[[ -x /usr/bin/time ]] || { echo "bench/run.sh needs /usr/bin/time (Debian: apt-get install time)" >&2; exit 1; }

# The corpus is about 540 bytes a row; outputs and references need as much
# again; the 1 GB input and its data set 1.8 GB more.
need_kb=$(( rows * 11 / 10 + 100000 + big * 1800000 ))
avail_kb=$(df -Pk /dev/shm 2> /dev/null | awk 'NR == 2 { print $4 }' || echo 0)
if [[ -d /dev/shm && ${avail_kb:-0} -gt $need_kb ]]; then base=/dev/shm; else base=${TMPDIR:-/tmp}; fi
work=$(mktemp -d "$base/kolv-bench.XXXXXX")
trap 'rm -rf "$work"' EXIT
cd "$work"

echo "== writing the corpus ($rows rows) in $work"
"$bin/gen_corpus" . "$rows"

# numpy and pandas, where the system Python has them.
python=
for p in /usr/bin/python3 python3; do
  if command -v "$p" > /dev/null && "$p" -c 'import numpy, pandas' 2> /dev/null; then python=$p; break; fi
done

# --- the command files --------------------------------------------------------
kolv_job() {  # name, command-file text
  printf '%s\n' "$2" > "$1.cmd"
}
kolv_job soft_d     'INPUT soft.txt;  OUTPUT soft_d;  INVAR x[1:10];'
kolv_job comma_d    'INPUT comma.csv; OUTPUT comma_d; INVAR DELIMIT(\R) x[1:10];'
kolv_job soft_f     'INPUT soft.txt;  OUTPUT soft_f;  OUTTYP F; INVAR x[1:10];'
kolv_job soft_i     'INPUT soft.txt;  OUTPUT soft_i;  OUTTYP I; INVAR x[1:10];'
kolv_job comma_f    'INPUT comma.csv; OUTPUT comma_f; OUTTYP F; INVAR DELIMIT(\R) x[1:10];'
kolv_job comma_i    'INPUT comma.csv; OUTPUT comma_i; OUTTYP I; INVAR DELIMIT(\R) x[1:10];'
kolv_job soft_sel   'INPUT soft.txt;  OUTPUT soft_sel;  INVAR x[1:10]; OUTVAR x01 x03 x05 x07 x09;'
kolv_job comma_sel  'INPUT comma.csv; OUTPUT comma_sel; INVAR DELIMIT(\R) x[1:10]; OUTVAR x01 x03 x05 x07 x09;'
kolv_job packed_d   'INPUT packed.txt; OUTPUT packed_d; INVAR RECORD = 140 #(1,14.6) x[1:10];'
# The jobs that run on worker threads, again on one thread (KOLV_THREADS=1),
# each into a data set of its own.
kolv_job comma_d1   'INPUT comma.csv; OUTPUT comma_d1; INVAR DELIMIT(\R) x[1:10];'
kolv_job comma_f1   'INPUT comma.csv; OUTPUT comma_f1; OUTTYP F; INVAR DELIMIT(\R) x[1:10];'
kolv_job packed_d1  'INPUT packed.txt; OUTPUT packed_d1; INVAR RECORD = 140 #(1,14.6) x[1:10];'
kolv_job mixed_d    'INPUT mixed.txt; OUTPUT mixed_d; INVAR $name #a[1:4] $code #b[1:4];'
kolv_job long_d     'INPUT long.txt;  OUTPUT long_d;  INVAR x[1:10];'

# --- the jobs: name | input | reference text | command ------------------------
names=() inputs=() refs=() cmds=()
job() { names+=("$1"); inputs+=("$2"); refs+=("$3"); cmds+=("$4"); }
job "strtod loop, soft"          soft.txt   soft  "$bin/strtod_loop soft.txt ref_soft.bin"
job "from_chars loop, soft"      soft.txt   soft  "$bin/fromchars_loop soft.txt fc_soft.bin"
job "strtod loop, comma"         comma.csv  comma "$bin/strtod_loop comma.csv ref_comma.bin"
job "from_chars loop, comma"     comma.csv  comma "$bin/fromchars_loop comma.csv fc_comma.bin"
job "strtod loop, long"          long.txt   long  "$bin/strtod_loop long.txt ref_long.bin"
job "from_chars loop, long"      long.txt   long  "$bin/fromchars_loop long.txt fc_long.bin"
# The I/O floor of each input: its bytes read, and those of its 8-byte data
# set written (10 columns of every row; long.txt holds rows / 4 lines).
job "I/O floor, soft"            soft.txt   soft  "$bin/io_floor soft.txt floor.bin $(( rows * 80 ))"
job "I/O floor, comma"           comma.csv  comma "$bin/io_floor comma.csv floor.bin $(( rows * 80 ))"
job "I/O floor, long"            long.txt   long  "$bin/io_floor long.txt floor.bin $(( (rows / 4 > 0 ? rows / 4 : 1) * 80 ))"
job "I/O floor, packed"          packed.txt soft  "$bin/io_floor packed.txt floor.bin $(( rows * 80 ))"
job "I/O floor, mixed"           mixed.txt  soft  "$bin/io_floor mixed.txt floor.bin $(( rows * 80 ))"
if [[ -n $python ]]; then
  job "numpy.loadtxt, soft"      soft.txt   soft  "$python -c \"import numpy; numpy.loadtxt('soft.txt').tofile('np_soft.bin')\""
  job "pandas.read_csv, comma"   comma.csv  comma "$python -c \"import pandas; pandas.read_csv('comma.csv', header=None).to_numpy().tofile('pd_comma.bin')\""
fi
job "kolv soft, D"               soft.txt   soft  "$kolv soft_d.cmd -noc"
job "kolv comma \\R, D"          comma.csv  comma "$kolv comma_d.cmd -noc"
job "kolv soft, F"               soft.txt   soft  "$kolv soft_f.cmd -noc"
job "kolv soft, I"               soft.txt   soft  "$kolv soft_i.cmd -noc"
job "kolv comma \\R, F"          comma.csv  comma "$kolv comma_f.cmd -noc"
job "kolv comma \\R, I"          comma.csv  comma "$kolv comma_i.cmd -noc"
job "kolv soft, OUTVAR 5 of 10"  soft.txt   soft  "$kolv soft_sel.cmd -noc"
job "kolv comma, OUTVAR 5 of 10" comma.csv  comma "$kolv comma_sel.cmd -noc"
job "kolv packed, D"             packed.txt soft  "$kolv packed_d.cmd -noc"
job "kolv comma \\R, D, 1 thread" comma.csv comma "env KOLV_THREADS=1 $kolv comma_d1.cmd -noc"
job "kolv comma \\R, F, 1 thread" comma.csv comma "env KOLV_THREADS=1 $kolv comma_f1.cmd -noc"
job "kolv packed, D, 1 thread"   packed.txt soft  "env KOLV_THREADS=1 $kolv packed_d1.cmd -noc"
job "kolv mixed, D"              mixed.txt  soft  "$kolv mixed_d.cmd -noc"
job "kolv long forms, D"         long.txt   long  "$kolv long_d.cmd -noc"
# After "kolv soft, D" in every round, so its data set is there to read.
job "kolvdump --csv"             soft.txt   soft  "$kolvdump --csv soft_d.dat > /dev/null"
job "kolvdump text view"         soft.txt   soft  "$kolvdump soft_d.dat > /dev/null"

# --- timing: round by round, so that a busy moment of the machine falls on
# every job alike. Round 1 runs the jobs in the listed order (the read-back
# jobs need kolv's soft_d.dat); every later round in its own shuffled order,
# so that no job always follows the same one. (With one fixed order, "kolv
# soft, D", always right after the I/O floor of mixed.txt, took 0.06 to
# 0.23 s of system time, against 0.02 to 0.06 s when run alone.) ---------------
declare -A walls rss users syss
njobs=${#names[@]}
echo "== timing $njobs jobs, $runs rounds"
for (( r = 1; r <= runs; r++ )); do
  if (( r == 1 )); then
    order=$(seq 0 $(( njobs - 1 )))
  else
    order=$(awk -v n="$njobs" -v r="$r" 'BEGIN { srand(r); for (j = 0; j < n; j++) print rand(), j }' \
      | sort -k1,1g | awk '{ print $2 }')
  fi
  for j in $order; do
    t0=$EPOCHREALTIME
    if ! /usr/bin/time -f '%M %U %S' -o rss.txt bash -c "exec ${cmds[j]}" > out.txt 2>&1; then
      echo "FAILED: ${names[j]}: ${cmds[j]}" >&2
      cat out.txt >&2
      exit 1
    fi
    t1=$EPOCHREALTIME
    walls[$j]+=" $(awk -v a="$t0" -v b="$t1" 'BEGIN { printf "%.4f", b - a }')"
    read -r m u sy < <(tail -n 1 rss.txt)
    rss[$j]+=" $m"
    users[$j]+=" $u"
    syss[$j]+=" $sy"
  done
  printf '   round %d of %d done\n' "$r" "$runs"
done

# --- checks: every kolv output against the strtod loop's doubles ------------
echo "== checking the outputs against the strtod loop"
declare -A check
cmp -s ref_soft.bin fc_soft.bin && cmp -s ref_comma.bin fc_comma.bin && cmp -s ref_long.bin fc_long.bin \
  && cmp -s ref_soft.bin ref_comma.bin || { echo "the baselines disagree" >&2; exit 1; }
verify() {  # job index, data set, reference, reference columns, [map]
  local j=$1
  shift
  if out=$("$bin/bench_compare" "$@" 2>&1); then check[$j]="identical"; else check[$j]="DIFFERS"; echo "   $out" >&2; fi
}
for (( j = 0; j < njobs; j++ )); do
  case ${names[j]} in
    "kolv soft, D") verify $j soft_d.dat ref_soft.bin 10 ;;
    "kolv comma \\R, D") verify $j comma_d.dat ref_comma.bin 10 ;;
    "kolv soft, F") verify $j soft_f.dat ref_soft.bin 10 ;;
    "kolv soft, I") verify $j soft_i.dat ref_soft.bin 10 ;;
    "kolv comma \\R, F") verify $j comma_f.dat ref_comma.bin 10 ;;
    "kolv comma \\R, I") verify $j comma_i.dat ref_comma.bin 10 ;;
    "kolv soft, OUTVAR 5 of 10") verify $j soft_sel.dat ref_soft.bin 10 0,2,4,6,8 ;;
    "kolv comma, OUTVAR 5 of 10") verify $j comma_sel.dat ref_comma.bin 10 0,2,4,6,8 ;;
    "kolv packed, D") verify $j packed_d.dat ref_soft.bin 10 ;;
    "kolv comma \\R, D, 1 thread") verify $j comma_d1.dat ref_comma.bin 10 ;;
    "kolv comma \\R, F, 1 thread") verify $j comma_f1.dat ref_comma.bin 10 ;;
    "kolv packed, D, 1 thread") verify $j packed_d1.dat ref_soft.bin 10 ;;
    "kolv mixed, D") verify $j mixed_d.dat ref_soft.bin 10 -,0,1,2,3,-,4,5,6,7 ;;
    "kolv long forms, D") verify $j long_d.dat ref_long.bin 10 ;;
    "from_chars loop, "*) check[$j]="identical" ;;
    "I/O floor, "*) check[$j]="-" ;;
    numpy*) cmp -s np_soft.bin ref_soft.bin && check[$j]="identical" || check[$j]="differs" ;;
    pandas*) cmp -s pd_comma.bin ref_comma.bin && check[$j]="identical" || check[$j]="differs" ;;
    "kolvdump --csv")
      # The CSV read back by kolv gives the strtod loop's doubles again.
      "$kolvdump" --csv --no-header soft_d.dat > back.csv
      printf '%s\n' 'INPUT back.csv; OUTPUT back_d; INVAR DELIMIT(\R) x[1:10];' > back_d.cmd
      "$kolv" back_d.cmd -noc > /dev/null
      verify $j back_d.dat ref_soft.bin 10
      rm -f back.csv back_d.dat ;;
    "kolvdump text view") check[$j]="-" ;;
    *) check[$j]="reference" ;;
  esac
done

# --- the table ----------------------------------------------------------------
median() { tr ' ' '\n' | grep . | sort -g | awk '{ v[NR] = $1 } END { print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }
declare -A med medu meds
for (( j = 0; j < njobs; j++ )); do
  med[$j]=$(median <<< "${walls[$j]}")
  medu[$j]=$(median <<< "${users[$j]}")
  meds[$j]=$(median <<< "${syss[$j]}")
done
floor_of() {  # the I/O floor's median for an input file
  case $1 in
    soft.txt) echo "${med[$(idx "I/O floor, soft")]}" ;;
    comma.csv) echo "${med[$(idx "I/O floor, comma")]}" ;;
    long.txt) echo "${med[$(idx "I/O floor, long")]}" ;;
    packed.txt) echo "${med[$(idx "I/O floor, packed")]}" ;;
    mixed.txt) echo "${med[$(idx "I/O floor, mixed")]}" ;;
  esac
}
idx() { local j; for (( j = 0; j < njobs; j++ )); do [[ ${names[j]} == "$1" ]] && { echo "$j"; return; }; done; }

echo
rev=$(git -C "$repo" rev-parse --short HEAD 2> /dev/null || echo '?')
[[ -n $(git -C "$repo" status --porcelain -- src bench 2> /dev/null) ]] && rev+=" with uncommitted changes"
echo "kolv $rev, $rows rows, median of $runs runs, $(date -u +%Y-%m-%dT%H:%MZ)"
echo "$(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2 | sed 's/^ *//'), $(nproc) cores, load $(cut -d' ' -f1-3 /proc/loadavg)"
echo "'x from_chars' and 'x strtod': time over that of the loop reading the same numbers"
echo "(packed and mixed: the loops over soft.txt); 'x I/O floor': over the I/O floor of"
echo "the same input; user and sys: medians of the CPU time in the process and in the kernel."
echo
results=$repo/bench/results.csv
[[ -f $results ]] || echo "date,commit,rows,job,input_mb,median_s,mb_s,x_from_chars,x_strtod,x_io_floor,user_s,sys_s,peak_mib,values" > "$results"
stamp=$(date -u +%Y-%m-%dT%H:%MZ)
printf '%-28s %9s %9s %8s %12s %10s %11s %7s %7s %10s  %s\n' conversion "input MB" "median s" "MB/s" "x from_chars" "x strtod" "x I/O floor" "user s" "sys s" "peak MiB" "values"
printf '%-28s %9s %9s %8s %12s %10s %11s %7s %7s %10s  %s\n' ---------- -------- -------- ---- ------------ -------- ----------- ------ ----- -------- ------
for (( j = 0; j < njobs; j++ )); do
  [[ ${names[j]} == kolvdump* ]] && continue
  bytes=$(stat -c %s "${inputs[j]}")
  fc=${med[$(idx "from_chars loop, ${refs[j]}")]}
  sd=${med[$(idx "strtod loop, ${refs[j]}")]}
  fl=$(floor_of "${inputs[j]}")
  peak=$(tr ' ' '\n' <<< "${rss[$j]}" | grep . | sort -n | tail -n 1)
  line=$(awk -v n="${names[j]}" -v b="$bytes" -v t="${med[$j]}" -v fc="$fc" -v sd="$sd" -v fl="$fl" \
    -v u="${medu[$j]}" -v sy="${meds[$j]}" -v m="$peak" -v c="${check[$j]}" \
    'BEGIN { printf "%-28s %9.1f %9.3f %8.1f %12.2f %10.2f %11.2f %7.2f %7.2f %10.1f  %s", n, b / 1e6, t, b / 1e6 / t, t / fc, t / sd, t / fl, u, sy, m / 1024, c }')
  echo "$line"
  awk -v d="$stamp" -v r="$rev" -v rows="$rows" -v n="${names[j]}" -v b="$bytes" -v t="${med[$j]}" -v fc="$fc" \
    -v sd="$sd" -v fl="$fl" -v u="${medu[$j]}" -v sy="${meds[$j]}" -v m="$peak" -v c="${check[$j]}" \
    'BEGIN { printf "%s,%s,%d,\"%s\",%.1f,%.4f,%.1f,%.3f,%.3f,%.3f,%.2f,%.2f,%.1f,%s\n", d, r, rows, n, b / 1e6, t, b / 1e6 / t, t / fc, t / sd, t / fl, u, sy, m / 1024, c }' >> "$results"
done

# --- reading back: kolvdump against the conversion that made its input ------
conv=${med[$(idx "kolv soft, D")]}
echo
echo "reading back soft_d.dat ($(stat -c %s soft_d.dat) bytes, $rows rows of 10 doubles) against \"kolv soft, D\" ($conv s):"
printf '%-28s %9s %12s %10s  %s\n' "reading" "median s" "x kolv soft" "peak MiB" "values"
printf '%-28s %9s %12s %10s  %s\n' ------- -------- ----------- -------- ------
for name in "kolvdump --csv" "kolvdump text view"; do
  j=$(idx "$name")
  peak=$(tr ' ' '\n' <<< "${rss[$j]}" | grep . | sort -n | tail -n 1)
  awk -v n="$name" -v t="${med[$j]}" -v c="$conv" -v m="$peak" -v v="${check[$j]}" \
    'BEGIN { printf "%-28s %9.3f %12.2f %10.1f  %s\n", n, t, t / c, m / 1024, v }'
done
fail=0
for (( j = 0; j < njobs; j++ )); do [[ ${check[$j]} == DIFFERS ]] && fail=1; done

# --- memory: one conversion of a 1 GB input ---------------------------------
if (( big )); then
  rm -f ./*.dat ./*.bin
  size=$(stat -c %s soft.txt)
  copies=$(( (1000000000 + size - 1) / size ))
  for (( c = 0; c < copies; c++ )); do cat soft.txt; done > big.txt
  printf '%s\n' 'INPUT big.txt; OUTPUT big_d; INVAR x[1:10];' > big_d.cmd
  t0=$EPOCHREALTIME
  /usr/bin/time -f %M -o rss.txt "$kolv" big_d.cmd -noc > out.txt 2>&1 || { cat out.txt >&2; exit 1; }
  t1=$EPOCHREALTIME
  stored=$(od -An -tu4 -j80 -N4 big_d.dat | tr -d ' ')
  echo
  awk -v b="$(stat -c %s big.txt)" -v t0="$t0" -v t1="$t1" -v m="$(tail -n 1 rss.txt)" -v r="$stored" -v w="$(( copies * rows ))" \
    'BEGIN { printf "kolv soft, D over a %.2f GB input: %.2f s, %.1f MB/s, peak %.1f MiB, %d rows (%s)\n",
             b / 1e9, t1 - t0, b / 1e6 / (t1 - t0), m / 1024, r, r == w ? "all of them" : "EXPECTED " w }'
  (( stored == copies * rows )) || fail=1
fi
exit $fail
