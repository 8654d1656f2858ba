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
#   tools    base, format (kolvprep also the engine's scanners: see below)
#
# Usage: layers.sh [SOURCE_ROOT]   (default: the project holding this script)
set -u
root=${1:-$(cd "$(dirname "$0")/../.." && pwd)}
cd "$root" || exit 2

allowed_for() {
  case $1 in
    src/base/*) echo "base" ;;
    src/format/*) echo "base format" ;;
    src/command/*) echo "base format command" ;;
    src/engine/*) echo "base format engine" ;;
    src/driver/*) echo "base format command engine driver" ;;
    src/main.cpp) echo "driver" ;;
    tools/kolvprep/*) echo "base format engine" ;;
    tools/*) echo "base format" ;;
    *) echo "" ;;
  esac
}

status=0
checked=0
while IFS= read -r file; do
  allowed=$(allowed_for "$file")
  [ -n "$allowed" ] || continue
  checked=$((checked + 1))
  while IFS= read -r line; do
    target=$(printf '%s\n' "$line" | sed -n 's/^[[:space:]]*#[[:space:]]*include[[:space:]]*"\([^"]*\)".*/\1/p')
    [ -n "$target" ] || continue
    layer=${target%%/*}
    # An include without a folder is the file's own neighbour (or generated).
    [ "$layer" != "$target" ] || continue
    case $layer in
      base | format | command | engine | driver) ;;
      *) continue ;;
    esac
    ok=0
    for a in $allowed; do [ "$a" = "$layer" ] && ok=1; done
    if [ $ok -eq 0 ]; then
      echo "forbidden include: $file includes \"$target\" (${file%/*} may include: $allowed)"
      status=1
    fi
  done < "$file"
done < <(find src tools -type f \( -name '*.cpp' -o -name '*.hpp' \) | sort)

if [ $checked -eq 0 ]; then
  echo "no source files found under $root/src" >&2
  exit 2
fi
[ $status -eq 0 ] && echo "layers: $checked files, every include allowed"
exit $status
