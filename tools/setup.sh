#!/usr/bin/env bash
# Installs the Debian (or Ubuntu) packages that building kolv and running its
# whole test suite need, when any is missing. Quiet and quick when all are
# present; needs root (or sudo) only when something must be installed. Runs
# without a terminal (CI).
#   tools/setup.sh
set -euo pipefail

packages=(
  # compilers, build, tests, benchmarks
  g++ clang clang-format cmake ninja-build make pkg-config binutils
  libgtest-dev libbenchmark-dev
  # the manual-page tests
  groff-base man-db
  # kolvdump's NumPy test
  python3 python3-numpy
  # kolvprep's decompression libraries, and the tools its tests compress with
  zlib1g-dev libzstd-dev liblzma-dev libbz2-dev gzip zstd xz-utils bzip2
  # the crash-state test records runs with strace; the package test builds a
  # .deb (dpkg-dev); the completions test parses the zsh completion too
  strace dpkg-dev zsh
)

if ! command -v dpkg-query >/dev/null 2>&1; then
  echo "setup: not a Debian system (no dpkg-query); install by hand: ${packages[*]}" >&2
  exit 1
fi

missing=()
for p in "${packages[@]}"; do
  status=$(dpkg-query -W -f='${Status}' "$p" 2>/dev/null || true)
  [[ "$status" == "install ok installed" ]] || missing+=("$p")
done
[[ ${#missing[@]} -eq 0 ]] && exit 0

echo "setup: installing ${missing[*]}"
run=()
if [[ $(id -u) -ne 0 ]]; then
  if ! command -v sudo >/dev/null 2>&1; then
    echo "setup: needs root to run: apt-get install ${missing[*]}" >&2
    exit 1
  fi
  run=(sudo)
fi
export DEBIAN_FRONTEND=noninteractive
apt_get=("${run[@]}" apt-get -y -q -o Dpkg::Use-Pty=0 --no-install-recommends)
log=$(mktemp)
trap 'rm -f "$log"' EXIT
# A fresh machine may have no package lists yet: update and try again. The
# output is shown only when it fails.
if ! "${apt_get[@]}" install "${missing[@]}" >"$log" 2>&1; then
  if ! { "${apt_get[@]}" update && "${apt_get[@]}" install "${missing[@]}"; } >"$log" 2>&1; then
    cat "$log" >&2
    echo "setup: apt-get install ${missing[*]} failed" >&2
    exit 1
  fi
fi
echo "setup: done"
