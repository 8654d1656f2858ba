#!/usr/bin/env bash
# Checks that every code name ARCHITECTURE.md quotes in backticks in its map
# of the tree and its journeys exists in the tree, so the document cannot
# drift from the code unseen. Prints each name it cannot find and exits 1
# when there is one.
#
#   a folder, src/base/     a folder whose path ends so
#   a path (with a "/" or an extension; "name.*" is any extension)
#                           a file whose path ends so
#   a manual page, kolv(1)  man/kolv.1
#   an option, --text       the text in the sources of the programs
#   anything else           each identifier in it (template arguments
#                           dropped; "::" and "." separate identifiers) as a
#                           whole word in the sources or the CMake files
#
# Usage: doc_names.sh [ROOT [DOCUMENT]]   (default: this project and its
# ARCHITECTURE.md)
set -u
root=${1:-$(cd "$(dirname "$0")/../.." && pwd)}
doc=${2:-$root/ARCHITECTURE.md}
cd "$root" || exit 2
[ -f "$doc" ] || { echo "no document $doc" >&2; exit 2; }

sources=()
for d in src tools tests bench; do [ -d "$d" ] && sources+=("$d"); done

# The backticked spans of the map and of the journeys, one a line.
names=$(awk '/^## /{ keep = ($0 ~ /Map of the tree|journey of one/) } keep' "$doc" |
  grep -o '`[^`]*`' | tr -d '`' | sort -u)

missing=0
miss() {
  echo "ARCHITECTURE names \`$1\`, which is not in the tree${2:+ ($2)}"
  missing=$((missing + 1))
}

has_word() {
  grep -rqwF --include='*.cpp' --include='*.hpp' --include='*.in' --include='*.sh' \
    --include='*.py' --include='CMakeLists.txt' -- "$1" "${sources[@]}" CMakeLists.txt
}

while IFS= read -r name; do
  [ -n "$name" ] || continue
  case "$name" in
    *\(1\))
      [ -f "man/${name%(1)}.1" ] || miss "$name" "no manual page"
      ;;
    -*)
      grep -rqF -- "$name" "${sources[@]}" || miss "$name" "no such option"
      ;;
    */)
      found=$(find . -type d -path "*/${name%/}" -not -path './build*' -print -quit 2>/dev/null)
      [ -n "$found" ] || miss "$name" "no such folder"
      ;;
    */* | *.cpp | *.hpp | *.py | *.sh | *.\*)
      pattern=$name
      [[ "$pattern" == *.* ]] || pattern="$pattern.*"
      found=$(find . -type f -path "*/$pattern" -not -path './build*' -print -quit 2>/dev/null)
      [ -n "$found" ] || miss "$name" "no such file"
      ;;
    *)
      bare=$(printf '%s' "$name" | sed 's/<[^>]*>//g')
      for word in $(printf '%s' "$bare" | tr -cs 'A-Za-z0-9_' ' '); do
        [[ "$word" =~ ^[A-Za-z_][A-Za-z0-9_]*$ ]] || continue
        has_word "$word" || miss "$name" "no $word in the sources"
      done
      ;;
  esac
done <<< "$names"

if [ "$missing" -gt 0 ]; then exit 1; fi
echo "doc names: $(printf '%s\n' "$names" | grep -c .) names of $(basename "$doc"), every one in the tree"
