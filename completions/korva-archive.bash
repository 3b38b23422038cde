# bash completion for korva-archive(1)

_korva_archive() {
  local options=(--list --output --all --report --openmetrics --exit-alerts --audit --jobs --sshlogin
    --pattern --korva --resume --help -o -j -h)
  local kinds=(CC-BRK CC-RST PCR-DELTA AV-DELTA0 AV-DELTA+ PCR-FREQ PAT-DIFF PMT-DIFF PID-NDAT)
  local word=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]} choices=() choice
  if [[ " ${COMP_WORDS[*]:0:COMP_CWORD} " == *' -- '* ]]; then # options of korva itself
    declare -F _korva >/dev/null && _korva
    return 0
  fi
  case $prev in
    --audit) choices=(mpeg dvb atsc ott) ;;
    --exit-alerts) choices=("${kinds[@]}") ;;
    *) [[ $word == -* ]] && choices=("${options[@]}") ;;
  esac

  # Compared here: compgen would expand what was typed, and carry out a $(...) in it.
  COMPREPLY=()
  for choice in "${choices[@]}"; do
    [[ $choice == "$word"* ]] && COMPREPLY+=("$choice")
  done
  return 0
}

complete -o default -F _korva_archive korva-archive
