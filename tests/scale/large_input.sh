#!/usr/bin/env bash
# The large-input run: converts generated inputs of several gigabytes with a
# Release build of kolv and reports wall time, peak memory and the row counts
# in the headers. Not part of the test suite (it needs minutes and about
# twice the input size in free disk space); run it by hand:
#
#   tests/scale/large_input.sh [BYTES]
#
# Two conversions, each checked:
#  1. rows of ten decimals, BYTES bytes of input (default 4500000000), as
#     4-byte floats: exit status 0, no message, the header counts every row
#     and the file holds exactly those rows;
#  2. 2^31 + 2^20 lines of "1" and a last line "+" (not a number), as 2-byte
#     integers: more than 2^31 rows and more than 4 GiB of input. The run
#     stops at the "+" with a bad-data report whose file offset lies within
#     the read buffer; the header's 32-bit row count holds 2^31 + 2^20.
#
# Environment: KOLV_BIN (the program; default build-rel/kolv, built as a
# Release build into build-scale when missing), SCALE_DIR (where the files
# go; default /tmp). Everything generated is removed at the end.
set -euo pipefail

root=$(cd "$(dirname "$0")/../.." && pwd)
bytes=${1:-4500000000}
kolv=${KOLV_BIN:-$root/build-rel/kolv}
if [ ! -x "$kolv" ]; then
  cmake -S "$root" -B "$root/build-scale" -G Ninja -DCMAKE_BUILD_TYPE=Release -DKOLV_TESTS=OFF >/dev/null
  cmake --build "$root/build-scale" -j 2 --target kolv
  kolv=$root/build-scale/kolv
fi

dir=$(mktemp -d "${SCALE_DIR:-/tmp}/kolv_scale_XXXXXX")
trap 'rm -rf "$dir"' EXIT
cd "$dir"

ones_rows=$(( (1 << 31) + (1 << 20) ))
biggest=$(( bytes > 2 * ones_rows + 2 ? bytes : 2 * ones_rows + 2 ))
need=$(( biggest * 2 + (1 << 30) ))
avail=$(df --output=avail -B1 "$dir" | tail -1 | tr -d ' ')
if [ "$avail" -lt "$need" ]; then
  echo "large_input: $dir has $avail bytes free, $need needed" >&2
  exit 1
fi

${CXX:-c++} -O2 -std=c++20 "$root/tests/scale/gen_rows.cpp" -o gen_rows

failed=0
check() {  # check WHAT EXPECTED ACTUAL
  if [ "$2" = "$3" ]; then
    echo "  ok    $1: $3"
  else
    echo "  FAIL  $1: expected $2, got $3"
    failed=1
  fi
}
u32_at() { od -An -tu4 -j "$1" -N4 out.dat | tr -d ' '; }

# convert NAME: runs kolv on run.cmd, timing it; sets status and prints figures.
convert() {
  local input_bytes
  input_bytes=$(stat -c %s in.txt)
  status=0
  /usr/bin/time -f '%e %M' -o time.txt "$kolv" run.cmd -noc >stdout.txt 2>stderr.txt || status=$?
  read -r wall rss <time.txt
  echo "$1:"
  echo "  input          $input_bytes bytes"
  echo "  wall time      $wall s ($(awk -v b="$input_bytes" -v s="$wall" 'BEGIN { printf "%.0f", b / s / 1e6 }') MB/s)"
  echo "  peak RSS       $rss KiB"
  echo "  output         $(stat -c %s out.dat) bytes"
  echo "  header rows    $(u32_at 80)"
}

echo "kolv: $kolv"
echo "files in: $dir"

# 1. Ten decimals per row.
start=$(date +%s.%N)
rows=$(./gen_rows decimals "$bytes" 2>&1 >in.txt)
echo "generated $rows rows in $(awk -v a="$start" -v b="$(date +%s.%N)" 'BEGIN { printf "%.1f", b - a }') s"
printf 'INPUT in.txt;\nOUTPUT out;\nOUTTYP F;\nINVAR v[1:10];\n' >run.cmd
convert "ten decimals per row, 4-byte floats"
check "exit status" 0 "$status"
check "standard output" "" "$(cat stdout.txt)"
check "standard error" "" "$(cat stderr.txt)"
check "header rows" "$rows" "$(u32_at 80)"
# Ten columns: data offset 128 + 330 + 6 pad; 40 bytes per row.
check "file size" $(( 464 + 40 * rows )) "$(stat -c %s out.dat)"
rm -f in.txt out.dat

# 2. More than 2^31 rows and 4 GiB of input, ending in bad data.
./gen_rows ones "$ones_rows" bad 2>/dev/null >in.txt
printf 'INPUT in.txt;\nOUTPUT out;\nOUTTYP I;\nINVAR x;\n' >run.cmd
convert "2^31 + 2^20 rows of one value, 2-byte integers, bad last line"
echo "  report:"
sed 's/^/    | /' stdout.txt
check "exit status" 0 "$status"
check "header rows" "$ones_rows" "$(u32_at 80)"
# 65536 rows fill a block; the rows form whole blocks, all written.
check "file size" $(( 168 + 2 * ones_rows )) "$(stat -c %s out.dat)"
offset=$(sed -n 's/.*file offset \([0-9-]*\) hex.*/\1/p' stdout.txt)
if [ -n "$offset" ] && [ "$offset" -ge 0 ] && [ "$offset" -lt 135168 ]; then
  echo "  ok    report offset within the read buffer: $offset"
else
  echo "  FAIL  report offset within the read buffer: '$offset'"
  failed=1
fi
line=$(sed -n 's/.*line \([0-9-]*\),.*/\1/p' stdout.txt)
echo "  note  report line: $line (the input line is $(( ones_rows + 1 )))"
rm -f in.txt out.dat

exit $failed
