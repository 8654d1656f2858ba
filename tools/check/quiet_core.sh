#!/usr/bin/env bash
# The core library prints only through the run's console streams and never
# ends the process by itself: no symbol of the library may refer to the
# functions that write to standard output on their own or end the process.
# Usage: quiet_core.sh LIBRARY.a
set -u
lib=${1:?usage: quiet_core.sh LIBRARY.a}
[ -f "$lib" ] || { echo "no library at $lib" >&2; exit 2; }
command -v nm >/dev/null || { echo "nm is not installed" >&2; exit 2; }
forbidden='printf|vprintf|puts|putchar|perror|exit|_exit|_Exit|quick_exit|abort'
hits=$(nm -A --undefined-only "$lib" | awk '{print $1, $NF}' | grep -wE "($forbidden)$")
objects=$(nm -A --undefined-only "$lib" | wc -l)
if [ "$objects" -eq 0 ]; then
  echo "nm found no symbols in $lib" >&2
  exit 2
fi
if [ -n "$hits" ]; then
  echo "the core library refers to functions that print or end the process on their own:"
  echo "$hits"
  exit 1
fi
echo "quiet core: $objects undefined symbols checked, none prints on its own or ends the process"
