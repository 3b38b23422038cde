# bash completion for korva-archive(1)

# What both programs take is completed there.
declare -F _korva >/dev/null || source "${BASH_SOURCE[0]%/*}/korva${BASH_SOURCE[0]##*/korva-archive}"

_korva_archive() {
  local options=(--list --output --all --report --openmetrics --exit-alerts --audit --jobs --sshlogin
    --pattern --korva --resume --help -o -j -h)
  local line=${COMP_LINE:0:COMP_POINT} choice
  local word=${line##*[[:blank:]]}
  if [[ $line == *' -- '* || $word == --audit=* || $word == --exit-alerts=* ]]; then
    _korva
    return 0
  fi

  # Compared here: compgen would expand what was typed, and carry out a $(...) in it.
  COMPREPLY=()
  [[ $word == -* ]] || return 0
  for choice in "${options[@]}"; do
    [[ $choice == "$word"* ]] && COMPREPLY+=("$choice")
  done
  return 0
}

complete -o default -F _korva_archive korva-archive
