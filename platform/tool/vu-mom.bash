# Completion of vu-mom for bash; the program itself knows what fits.
_vu_mom() {
  local IFS=$'\n'
  # shellcheck disable=SC2207  # one candidate per line
  COMPREPLY=($("$1" --complete "${COMP_LINE:0:COMP_POINT}" 2>/dev/null))
  if [ "${#COMPREPLY[@]}" = 1 ] && [ "${COMPREPLY[0]: -1}" = "=" ]; then
    compopt -o nospace 2>/dev/null
  fi
}
# File names where it knows nothing.
complete -o default -F _vu_mom vu-mom
