#!/usr/bin/env bash
# kolv and kolvdump need only the C++ standard library and the C library at
# run time: the shared libraries a program names (its NEEDED entries) must be
# among those (and the sanitizers' runtimes in a sanitizer build). kolvprep
# alone may also name the decompression libraries.
# Usage: runtime_libs.sh PROGRAM...
set -u
[ $# -gt 0 ] || { echo "usage: runtime_libs.sh PROGRAM..." >&2; exit 2; }
command -v readelf >/dev/null || { echo "readelf is not installed" >&2; exit 2; }
allowed='^(libstdc\+\+|libm|libgcc_s|libc|ld-linux[-a-z0-9_]*|libasan|libubsan)\.so'
status=0
for program in "$@"; do
  [ -f "$program" ] || { echo "no program at $program" >&2; exit 2; }
  needed=$(readelf -d "$program" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
  [ -n "$needed" ] || { echo "readelf found no NEEDED entries in $program" >&2; exit 2; }
  extra=$(printf '%s\n' "$needed" | grep -vE "$allowed" || true)
  if [ -n "$extra" ]; then
    echo "$program needs libraries beyond the C and C++ runtimes:" $extra
    status=1
  fi
done
[ $status -eq 0 ] && echo "runtime libraries: $# programs need only the C and C++ runtimes"
exit $status
