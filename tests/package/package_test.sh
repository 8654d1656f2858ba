#!/usr/bin/env bash
# Builds the Debian package of a build folder with cpack and checks it: its
# control fields, its file list (dpkg-deb -c: exactly the three programs,
# their manual pages and the completions) and, unpacked with dpkg -x, that
# each file is the one of the tree and the programs run.
#
# Usage: package_test.sh BUILD_DIR SOURCE_DIR VERSION
# Exits 77 (ctest's skip) with a line saying why where cpack, dpkg-deb or
# dpkg-shlibdeps is missing, unless KOLV_REQUIRE_PACKAGE=1 (CI), where that
# is a failure.
set -u
build=$1 source=$2 version=$3
failures=0
fail() {
  echo "FAIL: $*"
  failures=$((failures + 1))
}

for tool in cpack dpkg-deb dpkg dpkg-shlibdeps; do
  if ! command -v "$tool" > /dev/null; then
    echo "$tool is not installed (Debian: apt-get install cmake dpkg-dev): the package is not built"
    [[ ${KOLV_REQUIRE_PACKAGE:-} == 1 ]] && exit 1
    exit 77
  fi
done

work=$(mktemp -d) || exit 1
trap 'rm -rf "$work"' EXIT
if ! cpack -G DEB --config "$build/CPackConfig.cmake" -B "$work/out" > "$work/cpack.log" 2>&1; then
  cat "$work/cpack.log"
  echo "FAIL: cpack -G DEB"
  exit 1
fi
shopt -s nullglob
debs=("$work"/out/*.deb)
if ((${#debs[@]} != 1)); then
  cat "$work/cpack.log"
  echo "FAIL: cpack wrote ${#debs[@]} .deb files, not one"
  exit 1
fi
deb=${debs[0]}
arch=$(dpkg --print-architecture)
[[ $(basename "$deb") == "kolv_${version}_${arch}.deb" ]] ||
  fail "the package is named $(basename "$deb"), not kolv_${version}_${arch}.deb"

# The control fields.
field() { dpkg-deb -f "$deb" "$1"; }
[[ $(field Package) == kolv ]] || fail "Package: $(field Package)"
[[ $(field Version) == "$version" ]] || fail "Version: $(field Version), not $version"
[[ $(field Section) == science ]] || fail "Section: $(field Section)"
[[ $(field Architecture) == "$arch" ]] || fail "Architecture: $(field Architecture)"
[[ -n $(field Maintainer) ]] || fail "no Maintainer"
[[ $(field Description) == "converts ASCII text exports into VELDA data sets"* ]] ||
  fail "Description: $(field Description)"
# The libraries the programs link, found by dpkg-shlibdeps.
depends=$(field Depends)
for library in libc6 libstdc++6; do
  [[ $depends == *"$library ("* ]] || fail "Depends does not name $library: $depends"
done

# The files, and nothing else (directories aside).
want=(
  ./usr/bin/kolv
  ./usr/bin/kolvdump
  ./usr/bin/kolvprep
  ./usr/share/bash-completion/completions/kolv
  ./usr/share/bash-completion/completions/kolvdump
  ./usr/share/bash-completion/completions/kolvprep
  ./usr/share/man/man1/kolv.1
  ./usr/share/man/man1/kolvdump.1
  ./usr/share/man/man1/kolvprep.1
  ./usr/share/zsh/vendor-completions/_kolv
)
got=$(dpkg-deb -c "$deb" | awk '$1 !~ /^d/ { print $6 }' | LC_ALL=C sort)
expected=$(printf '%s\n' "${want[@]}" | LC_ALL=C sort)
[[ $got == "$expected" ]] || fail "dpkg-deb -c lists
$got
not
$expected"
dpkg-deb -c "$deb" | awk '$1 ~ /^-/ && $2 != "root/root" { print "FAIL: owner " $2 " of " $6 }' |
  grep . && failures=$((failures + 1))

# Unpacked: each file is the tree's, the programs are executable and run.
dpkg -x "$deb" "$work/root" || fail "dpkg -x"
for page in kolv.1 kolvdump.1 kolvprep.1; do
  cmp -s "$source/man/$page" "$work/root/usr/share/man/man1/$page" || fail "$page differs from man/$page"
done
for program in kolv kolvdump kolvprep; do
  cmp -s "$source/completions/kolv.bash" "$work/root/usr/share/bash-completion/completions/$program" ||
    fail "the bash completion of $program differs from completions/kolv.bash"
  [[ -x $work/root/usr/bin/$program ]] || fail "usr/bin/$program is not executable"
done
cmp -s "$source/completions/_kolv" "$work/root/usr/share/zsh/vendor-completions/_kolv" ||
  fail "_kolv differs from completions/_kolv"
[[ $("$work/root/usr/bin/kolvdump" --version) == "kolvdump (kolv) $version" ]] ||
  fail "the unpacked kolvdump --version says: $("$work/root/usr/bin/kolvdump" --version)"
"$work/root/usr/bin/kolvprep" --version | grep -q -- "$version" ||
  fail "the unpacked kolvprep --version does not say $version"

if ((failures > 0)); then
  echo "$failures failures"
  exit 1
fi
echo "package: $(basename "$deb") holds ${#want[@]} files, as it should"
