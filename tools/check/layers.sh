#!/usr/bin/env bash
# Checks the layer rules of the source tree (ARCHITECTURE.md, "Layers") over
# every #include "..." line: a file may include only the folders its layer
# allows. Prints each forbidden include and exits 1 when there is one.
#
#   base     nothing of ours
#   format   base
#   command  base, format
#   engine   base, format
#   driver   base, format, command, engine
#   tools    base, format
#
# Usage: layers.sh [SOURCE_ROOT]   (default: the project holding this script)
set -u
root=${1:-$(cd "$(dirname "$0")/../.." && pwd)}
cd "$root" || exit 2

dirs=$(for d in src tools; do [ -d "$d" ] && echo "$d"; done)
# shellcheck disable=SC2086
files=$(find $dirs -type f \( -name '*.cpp' -o -name '*.hpp' \) | sort)
if [ -z "$files" ]; then
  echo "no source files found under $root/src" >&2
  exit 2
fi

# One pass of awk over every file: the file's layer decides what it may
# include; an include without a folder is the file's own neighbour (or a
# generated header), and folders that are not layers are not ours.
# shellcheck disable=SC2086
awk '
  function allowed_for(file) {
    if (file ~ /^src\/base\//) return " base ";
    if (file ~ /^src\/format\//) return " base format ";
    if (file ~ /^src\/command\//) return " base format command ";
    if (file ~ /^src\/engine\//) return " base format engine ";
    if (file ~ /^src\/driver\//) return " base format command engine driver ";
    if (file == "src/main.cpp") return " driver ";
    if (file ~ /^tools\//) return " base format ";
    return "";
  }
  FNR == 1 { allowed = allowed_for(FILENAME); if (allowed != "") checked++ }
  allowed != "" && /^[ \t]*#[ \t]*include[ \t]*"/ {
    target = $0
    sub(/^[ \t]*#[ \t]*include[ \t]*"/, "", target)
    sub(/".*$/, "", target)
    n = index(target, "/")
    if (n == 0) next
    layer = substr(target, 1, n - 1)
    if (layer !~ /^(base|format|command|engine|driver)$/) next
    if (index(allowed, " " layer " ") == 0) {
      dir = FILENAME; sub(/\/[^\/]*$/, "", dir)
      printf "forbidden include: %s includes \"%s\" (%s may include:%s)\n", FILENAME, target, dir, allowed
      bad++
    }
  }
  END {
    if (bad > 0) exit 1
    printf "layers: %d files, every include allowed\n", checked
  }
' $files
