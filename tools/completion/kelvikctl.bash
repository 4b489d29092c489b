# bash completion for kelvikctl. Names of modules and displays are asked of the process that the
# words so far point at.

# Runs kelvikctl on the process of --host and --port among the words; quick, and quiet when nobody
# answers.
_kelvikctl_ask() {
  local i at where=()
  for ((i = 1; i < COMP_CWORD; ++i)); do
    case ${COMP_WORDS[i]} in
      --host | --port)
        # "--port=1" comes as three words.
        at=$((i + 1))
        [[ ${COMP_WORDS[at]-} == "=" ]] && ((++at))
        where+=("${COMP_WORDS[i]}" "${COMP_WORDS[at]-}")
        ;;
    esac
  done
  "${COMP_WORDS[0]}" "${where[@]}" --timeout 0.5 "$1" 2> /dev/null
}

# The command and the words behind it up to the cursor, without options, in the array given.
_kelvikctl_words() {
  local i
  local -n words=$1
  for ((i = 1; i < COMP_CWORD; ++i)); do
    case ${COMP_WORDS[i]} in
      --host | --port | --timeout | --for | -n | --lines | --config | --module | --grep)
        ((++i))
        [[ ${COMP_WORDS[i]} == "=" ]] && ((++i))
        ;;
      -*) ;;
      *) words+=("${COMP_WORDS[i]}") ;;
    esac
  done
}

_kelvikctl() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
  local said=() choices=""
  COMPREPLY=()
  case $previous in
    --host) choices="127.0.0.1" ;;
    --port) choices=$("${COMP_WORDS[0]}" ps 2> /dev/null | awk 'NR > 1 { print $3 }') ;;
    --timeout | --for | -n | --lines | --module | --grep) return ;;
    --config)
      mapfile -t COMPREPLY < <(compgen -f -- "$current")
      compopt -o filenames 2> /dev/null
      return
      ;;
    *)
      _kelvikctl_words said
      case ${said[0]-}:${#said[@]} in
        :0) choices="status modules list show watch level output prefix limit path focus tty console
          attach set save send ps logs check --host --port --timeout --help --version" ;;
        show:1 | watch:1) choices=$(_kelvikctl_ask list | awk '!seen[$1]++ { print $1 }') ;;
        show:2 | watch:2)
          choices=$(_kelvikctl_ask list | awk -v module="${said[1]}" \
            'tolower($1) == tolower(module) { print $2 }')
          ;;
        level:1) choices="debug info warning error fatal" ;;
        output:1) choices="terminal syslog file" ;;
        prefix:1) choices="time tid" ;;
        level:2 | output:2 | prefix:2) choices="on off" ;;
        level:3 | set:1) choices=$(_kelvikctl_ask modules) ;;
        limit:1) choices="size duration count buffer interval" ;;
        focus:1) choices="off $(_kelvikctl_ask modules)" ;;
        save:1) choices="all global $(_kelvikctl_ask modules)" ;;
        send:*) choices="-printf -syslog -file -leveldbg -levelinfo -levelwarn -levelerror
          -levelfatal -time -tid -focus -logpath -console -tty -show -set -sav -logsize
          -logduration -logcount -buffersize -interval" ;;
        tty:1 | path:1 | check:1)
          mapfile -t COMPREPLY < <(compgen -f -- "$current")
          compopt -o filenames 2> /dev/null
          return
          ;;
      esac
      if [[ $current == -* && ${said[0]-} != send ]]; then
        choices="--host --port --timeout --help"
        [[ ${said[0]-} == level || ${said[0]-} == attach ]] && choices+=" --for"
        [[ ${said[0]-} == watch ]] && choices+=" -n"
        [[ ${said[0]-} == logs ]] && choices="--config --follow --lines --module --grep --help"
        [[ ${said[0]-} == check ]] && choices="--help"
        [[ ${#said[@]} == 0 ]] && choices+=" --version"
      fi
      ;;
  esac
  mapfile -t COMPREPLY < <(compgen -W "$choices" -- "$current")
}

complete -F _kelvikctl kelvikctl
