# bash completion for korva(1)

_korva() {
  local shorts=(-t -v -V '-?' -S -s -a -H -r -m -C -Y -k -A)
  local longs=(--verbose --version --options --srctag --maxskip --alerts --hushlog --from --maxnum
    --config --syslog --track --analyze --exit-alerts --json --progress --report --audit
    --junit --baseline --baseline-write --clip --packet-size --limit --help)
  local analyzer=(on off enable disable skipped_pkts= pdts_delta= pcr_delta= pcr_freq=
    max_zreset_time= cc_track=)
  local traces=(sdt_i misc_i pdts_u pat_pmt pcr_u cc_t pmt_d pat_d)
  local facilities=(user local0 local1 local2 local3 local4 local5 local6 local7)
  local kinds=(CC-BRK CC-RST PCR-DELTA AV-DELTA0 AV-DELTA+ PCR-FREQ PAT-DIFF PMT-DIFF PID-NDAT
    NOT-CHECKED)
  local findings=(SYNC-LOSS SYNC-BYTE TEI CC-LOSS CC-DUP CC-ORDER CC-AF PSI-CRC PSI-SYNTAX
    PSI-TABLE PSI-SCRAMBLED PSI-VERSION PSI-GAP PCR-GAP PCR-JUMP PCR-ACCURACY
    PTS-GAP STAMP-LATE STAMP-DELAY STAMP-BASE STAMP-ORDER STAMP-BACK STAMP-JUMP
    PID-GAP SCRAMBLED CAT-MISSING RATE-LOSS AFC-RESERVED AF-SYNTAX PID-UNREFERENCED
    LEADING PAT-CHANGE PMT-CHANGE PID-ABSENT)
  local limits=(pat_ms= pmt_ms= pcr_ms= pcr_accuracy_ns= pts_ms= pid_gap_ms= delay_ms= video_step_ms=
    audio_step_ms= nit_ms= sdt_ms= eit_ms= tdt_ms=)

  # The words up to the cursor, not yet cut at "=" and ":".
  local line=${COMP_LINE:0:COMP_POINT} words word prev
  read -ra words <<<"$line"
  [[ $line == *[[:blank:]] ]] && words+=('')
  word=${words[-1]} prev=
  ((${#words[@]} > 1)) && prev=${words[-2]}
  case $word in
    --*=*) prev=${word%%=*} word=${word#*=} ;;
    -[SsarmCYkA]?*) prev=${word:0:2} word=${word:2} ;;
  esac
  # What readline replaces is only the part behind the last "=" or ":"; an option's letter belongs
  # to it when the argument is attached.
  local whole=${words[-1]} part
  part=${whole##*[=:]}

  local choices=() before=
  compopt +o default
  case $prev in
    -a | --alerts) choices=(on off) ;;
    -Y | --syslog) choices=("${facilities[@]}") ;;
    -A | --analyze)
      case $word in
        cc_track=*) choices=(cc_track=0 cc_track=1) ;;
        *=*) ;;
        *) choices=("${analyzer[@]}") ;;
      esac
      ;;
    -k | --track)
      [[ $word == *:* ]] && before=${word%:*}:
      local trace
      for trace in "${traces[@]}"; do
        [[ :$before == *":$trace:"* ]] || choices+=("$before$trace")
      done
      [[ $before ]] || choices+=(all)
      ;;
    -S | --srctag | -s | --maxskip | -r | --from | -m | --maxnum) ;;
    --audit)
      [[ ${words[-1]} == *=* ]] && choices=(mpeg dvb atsc ott) || compopt -o default
      ;;
    --packet-size) choices=(auto 188 192 204 208) ;;
    --limit) [[ $word == *=* ]] || choices=("${limits[@]}") ;;
    --exit-alerts)
      [[ $line == *--audit* ]] && kinds=("${findings[@]}")
      [[ ${words[-1]} == *=* ]] || { kinds=() && compopt -o default; } # the argument is optional
      [[ $word == *,* ]] && before=${word%,*},
      choices=("${kinds[@]/#/"$before"}")
      ;;
    -C | --config | --json | --report | --junit | --baseline | --baseline-write | --clip) compopt -o default ;;
    *)
      case $word in
        --*) choices=("${longs[@]}") ;;
        -*) choices=("${shorts[@]}" "${longs[@]}") ;;
        *) compopt -o default ;;
      esac
      ;;
  esac

  # Compared here: compgen would expand what was typed, and carry out a $(...) in it.
  local skip=$((${#whole} - ${#part})) lead=${whole%"$word"} choice
  COMPREPLY=()
  for choice in "${choices[@]}"; do
    [[ $choice == "$word"* ]] || continue
    choice=$lead$choice
    COMPREPLY+=("${choice:skip}")
  done
  [[ ${COMPREPLY[*]} == *= ]] && compopt -o nospace
  return 0
}

complete -o default -F _korva korva
