# shellcheck shell=bash
# Bash completion for vostrel, vostrel-plot and vostrel-evaluate. Columns, numbers and titles are left to the user.

# Splits the line up to the cursor into the array `words`, without redirections. (Bash's own words
# are also cut at ":" and "=".) Returns 1 if the file of a redirection is being typed.
_vostrel_words() {
  local line=${COMP_LINE:0:COMP_POINT} char quote='' all=('') word redirection=0 file=0 i
  for ((i = 0; i < ${#line}; i++)); do
    char=${line:i:1}
    if [[ $char == \\ && $quote != \' ]]; then
      ((++i))
      char+=${line:i:1}
    elif [[ $quote ]]; then
      if [[ $char == "$quote" ]]; then quote=; fi
    elif [[ $char == [\"\'] ]]; then
      quote=$char
    elif [[ $char == [[:blank:]] ]]; then
      if [[ ${all[-1]} ]]; then all+=(''); fi
      continue
    fi
    all[-1]+=$char
  done

  words=()
  for word in "${all[@]}"; do
    if ((file)); then
      file=0
      redirection=1
    elif [[ $word =~ ^([0-9]*|\&)[\<\>] ]]; then
      redirection=1
      if [[ $word == *[\<\>\|\&] ]]; then file=1; fi  # its file is the next word
    else
      redirection=0
      words+=("$word")
    fi
  done
  return "$redirection"
}

# Offers files for the last of `words`. $1 is the part of that word after the last ":" or "=", which
# readline takes for the whole word. Readline's own completion is better, but it sees only that part.
_vostrel_files() {
  local word=${words[-1]} names
  compopt -o default
  if [[ $word == "$1" || $word == [\"\']* ]]; then return; fi
  compopt -o filenames
  mapfile -t names < <(compgen -f -- "${word//\\/}")
  COMPREPLY=("${names[@]#"${word%"$1"}"}")
}

_vostrel() {
  local words
  COMPREPLY=()
  if ! _vostrel_words; then
    compopt -o default
    return
  fi
  case $((${#words[@]} - 1)) in
    1) mapfile -t COMPREPLY < <(compgen -W "--stats" -- "$2") ;;
    2 | 3) _vostrel_files "$2" ;;
    4) mapfile -t COMPREPLY < <(compgen -W "0 1" -- "$2") ;;
  esac
}
complete -F _vostrel vostrel

_vostrel_plot() {
  local words
  local options="--report --output --title --dpi --layout --table --no-table --log --no-log --labels
    --compare --version --help"
  COMPREPLY=()
  if ! _vostrel_words; then
    compopt -o default
    return
  fi
  case ${words[-2]} in
    --title | --dpi | --labels) return ;;
    --layout)
      mapfile -t COMPREPLY < <(compgen -W "page column" -- "$2")
      return
      ;;
    --report | --output)
      _vostrel_files "$2"
      return
      ;;
  esac
  case ${words[-1]} in
    --title=* | --dpi=* | --labels=*) ;;
    --layout=*) mapfile -t COMPREPLY < <(compgen -W "page column" -- "$2") ;;
    --*=*) compopt -o default ;;
    -*) mapfile -t COMPREPLY < <(compgen -W "$options" -- "$2") ;;
    *) _vostrel_files "$2" ;;
  esac
}
complete -F _vostrel_plot vostrel-plot

_vostrel_evaluate() {
  local words
  local options="--columns --where --missing --by --bins --percentiles --outliers --errors --groups --resamples --confidence
    --seed --format --output --report --table --memory --version --help"
  COMPREPLY=()
  if ! _vostrel_words; then
    compopt -o default
    return
  fi
  case ${words[-2]} in
    --where | --missing | --by | --bins | --percentiles | --outliers | --groups | --resamples | \
      --confidence | --seed | --memory)
      return
      ;;
    --errors)
      mapfile -t COMPREPLY < <(compgen -W "none formula bootstrap" -- "$2")
      return
      ;;
    --format)
      mapfile -t COMPREPLY < <(compgen -W "text json csv ecsv latex markdown" -- "$2")
      return
      ;;
  esac
  case ${words[-1]} in
    --output=* | --report=* | --table=*) compopt -o default ;;
    --errors=*) mapfile -t COMPREPLY < <(compgen -W "none formula bootstrap" -- "$2") ;;
    --format=*)
      mapfile -t COMPREPLY < <(compgen -W "text json csv ecsv latex markdown" -- "$2")
      ;;
    --*=*) ;;
    -*) mapfile -t COMPREPLY < <(compgen -W "$options" -- "$2") ;;
    *) _vostrel_files "$2" ;;
  esac
}
complete -F _vostrel_evaluate vostrel-evaluate
