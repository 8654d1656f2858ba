#!/usr/bin/env bash
# The shell completions: both files parse, the bash functions complete a
# few words as they should in a folder of known files, and every option of
# kolvdump's and kolvprep's --help is offered.
#
# Usage: completions_test.sh COMPLETIONS_DIR KOLVDUMP KOLVPREP
# Exits 0 when all holds, 1 with a line per failure; the zsh parse is skipped
# (said so) where zsh is not installed.
set -u
# Absolute paths: the checks run in a folder of their own.
dir=$(realpath "$1") kolvdump=$(realpath "$2") kolvprep=$(realpath "$3")
failures=0
fail() {
  echo "FAIL: $*"
  failures=$((failures + 1))
}

bash -n "$dir/kolv.bash" || fail "bash -n $dir/kolv.bash"
if command -v zsh > /dev/null; then
  zsh -n "$dir/_kolv" || fail "zsh -n $dir/_kolv"
else
  echo "zsh is not installed (Debian: apt-get install zsh): $dir/_kolv is not parsed"
fi

work=$(mktemp -d) || exit 1
trap 'rm -rf "$work"' EXIT
cd "$work" || exit 1
touch lakes.cmd lakes.dat lakes.txt survey.cmd survey.dat plot.npy
mkdir data

# complete FUNCTION WORD... : the sorted completions of the last word.
complete_words() {
  bash -c '
    source "$0" || exit 1
    fn=$1
    shift
    COMP_WORDS=("$@")
    COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
    "$fn"
    ((${#COMPREPLY[@]} == 0)) || printf "%s\n" "${COMPREPLY[@]}" | LC_ALL=C sort | tr "\n" " "
  ' "$dir/kolv.bash" "$@"
}

expect() {
  local want=$1
  shift
  local got
  got=$(complete_words "$@")
  [[ $got == "$want" ]] || fail "$* gives [$got], not [$want]"
}

# kolv: command files and folders; kolvdump: data sets and folders;
# kolvprep: any file.
expect "data lakes.cmd survey.cmd " _kolv kolv ""
expect "lakes.cmd " _kolv kolv "la"
expect "data lakes.dat survey.dat " _kolvdump kolvdump --summary ""
expect "data lakes.cmd lakes.dat lakes.txt plot.npy survey.cmd survey.dat " _kolvprep kolvprep ""
# Options, and the values some of them take.
expect "--summary " _kolvdump kolvdump --su
expect "--head --header-only --help " _kolvdump kolvdump --he
expect "data plot.npy " _kolvdump kolvdump --npy ""
expect "" _kolvdump kolvdump --columns ""
expect "--misfits= --missing " _kolvprep kolvprep --mis
expect "--misfits=pad --misfits=reject " _kolvprep kolvprep --misfits=
expect "reject " _kolvprep kolvprep --misfits = r
expect "--comment=hash " _kolvprep kolvprep --comment=h
expect "" _kolvprep kolvprep --name ""
expect "--no-header " _kolvprep kolvprep --no

# Every option the programs' --help names is offered after "--".
for program in kolvdump kolvprep; do
  binary=$kolvdump fn=_kolvdump
  [[ $program == kolvprep ]] && binary=$kolvprep fn=_kolvprep
  offered=" $(complete_words "$fn" "$program" --) "
  help=$("$binary" --help) || fail "$program --help"
  count=0
  for word in $(grep -o -- '--[a-z][a-z-]*=\?' <<< "$help" | sort -u); do
    count=$((count + 1))
    # An option given as --opt=VALUE in the help may be offered with or
    # without its "=".
    [[ $offered == *" $word "* || $offered == *" ${word%=} "* || $offered == *" $word= "* ]] ||
      fail "$program: $word of --help is not offered"
  done
  ((count > 3)) || fail "$program --help named only $count options"
done

if ((failures > 0)); then
  echo "$failures failures"
  exit 1
fi
echo "completions: all checks passed"
