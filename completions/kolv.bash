# bash completion for kolv, kolvdump and kolvprep.
#
# Installed once under each program's name in bash-completion's folder of
# completions, so that it is loaded when one of them is first completed; it
# may also be sourced by hand. kolv takes a command file (*.cmd), kolvdump a
# data set (*.dat), kolvprep a text export (any file).

# Files ending in .EXT and folders (any file without EXT), for the word
# being completed.
_kolv_files() {
  local cur=$1 ext=$2 IFS=$'\n'
  if [[ -n $ext ]]; then
    COMPREPLY+=($(compgen -d -- "$cur"))
    COMPREPLY+=($(compgen -f -X "!*.$ext" -- "$cur"))
  else
    COMPREPLY+=($(compgen -f -- "$cur"))
  fi
}

# The option (with its "=" when it was given as --option=) and the text
# after it, for a word that bash split at "=" or not: sets _kolv_opt and
# _kolv_val when the word being completed is the value of an option.
_kolv_split() {
  local cur=${COMP_WORDS[COMP_CWORD]} prev=
  ((COMP_CWORD > 0)) && prev=${COMP_WORDS[COMP_CWORD - 1]}
  _kolv_opt= _kolv_val=$cur _kolv_joined=
  if [[ $cur == --*=* ]]; then
    _kolv_opt=${cur%%=*} _kolv_val=${cur#*=} _kolv_joined=1
  elif [[ $cur == = ]] && ((COMP_CWORD > 1)); then
    _kolv_opt=$prev _kolv_val=
  elif [[ $prev == = ]] && ((COMP_CWORD > 1)); then
    _kolv_opt=${COMP_WORDS[COMP_CWORD - 2]} _kolv_val=$cur
  elif [[ $prev == --* ]]; then
    _kolv_opt=$prev _kolv_val=$cur _kolv_joined=0
  fi
}

# COMPREPLY from the words of $2 that begin with $1, each after prefix $3.
_kolv_words() {
  local w
  for w in $2; do
    [[ $w == "$1"* ]] && COMPREPLY+=("$3$w")
  done
}

_kolv() {
  COMPREPLY=()
  local cur=${COMP_WORDS[COMP_CWORD]}
  _kolv_files "$cur" cmd
}

_kolvdump() {
  COMPREPLY=()
  local cur=${COMP_WORDS[COMP_CWORD]}
  _kolv_split
  # Options whose value is the next word or follows "=".
  case $_kolv_opt in
    --npy)
      [[ $_kolv_joined == 1 ]] && return
      _kolv_files "$_kolv_val" npy
      return
      ;;
    --columns | --rows | --head | --na)
      return
      ;;
  esac
  if [[ $cur == -* ]]; then
    _kolv_words "$cur" "--csv --npy --check --summary --ascii --columns --rows --head
      --header-only --na --no-header --help --version"
    return
  fi
  _kolv_files "$cur" dat
}

_kolvprep() {
  COMPREPLY=()
  local cur=${COMP_WORDS[COMP_CWORD]}
  _kolv_split
  local prefix=
  [[ $_kolv_joined == 1 ]] && prefix=$_kolv_opt=
  case $_kolv_opt in
    --misfits)
      _kolv_words "$_kolv_val" "reject pad" "$prefix"
      return
      ;;
    --comment)
      _kolv_words "$_kolv_val" "hash percent" "$prefix"
      return
      ;;
    --name | --delimiter | --quote | --skip | --cuts | --text-columns | --numeric-columns | \
      --missing | --layout | --columns | --fixed | --date | --time | --datetime)
      # A value of the user's own: nothing to offer.
      return
      ;;
  esac
  if [[ $cur == -* ]]; then
    _kolv_words "$cur" "--name --force --full --text --delimiter --quote --header --no-header
      --skip --cuts --text-columns --numeric-columns --missing --misfits=
      --layout= --comment= --columns= --fixed= --date= --time= --datetime= --help --version"
    # An option that ends with "=" takes its value in the same word.
    [[ ${#COMPREPLY[@]} == 1 && ${COMPREPLY[0]} == *= ]] && compopt -o nospace 2>/dev/null
    return
  fi
  _kolv_files "$cur" ""
}

complete -F _kolv -o filenames kolv
complete -F _kolvdump -o filenames kolvdump
complete -F _kolvprep -o filenames kolvprep
