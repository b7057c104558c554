# Completion of vostrel for bash: --stats, the two files, the header flag; a column index is a
# number that nobody can guess.

_vostrel() {
  COMPREPLY=()
  local word=${COMP_WORDS[COMP_CWORD]}
  case $COMP_CWORD in
    1) COMPREPLY=($(compgen -W "--stats" -- "$word")) ;;
    2 | 3) compopt -o default ;;  # file names, as bash completes them itself
    4) COMPREPLY=($(compgen -W "0 1" -- "$word")) ;;
  esac
}
complete -F _vostrel vostrel
