#!/bin/sh
# What bash completes for kelvikctl and kelviklog, its questions to a running process included.
#   completion-test.sh COMPLETION-FOLDER KELVIKCTL SYSMON
# Exit code 77: there is no bash here, nothing was tested.
set -u
if ! command -v bash > /dev/null 2>&1; then
  echo "SKIPPED: bash is not installed; completion was not tried"
  exit 77
fi
port=$((30000 + $$ % 2000))
while grep -qi ":$(printf '%04X' $port) " /proc/net/udp; do port=$((port + 1)); done
"$3" --port $port > /dev/null 2>&1 < /dev/null &
sysmon=$!
trap 'kill $sysmon; wait $sysmon' EXIT
tries=100
until "$2" --port $port status > /dev/null 2>&1; do
  tries=$((tries - 1))
  [ $tries -gt 0 ] || { echo "sysmon does not answer"; exit 1; }
  sleep 0.1
done

bash -u -s -- "$1" "$2" $port << 'BASH'
. "$1/kelvikctl.bash"
. "$1/kelviklog.bash"
kelvikctl=$2
port=$3
failed=0

# complete_is EXPECTED WORD...: what is offered for the last word.
complete_is() {
  local expected=$1 got
  shift
  COMP_WORDS=("$@")
  COMP_CWORD=$(($# - 1))
  case $1 in
    *kelvikctl) _kelvikctl ;;
    *) _kelviklog ;;
  esac
  got="${COMPREPLY[*]-}"
  if [[ $got != "$expected" ]]; then
    echo "'$*' offers '$got', not '$expected'"
    failed=1
  fi
}

complete_is "status show set save send" "$kelvikctl" s
complete_is "warning" "$kelvikctl" level w
complete_is "on off" "$kelvikctl" level debug o
complete_is "disk mem net" "$kelvikctl" --port $port level debug on ""
complete_is "off disk mem net" "$kelvikctl" --port = $port focus ""
complete_is "Kelvik" "$kelvikctl" --port $port show K
complete_is "attribute module cmd" "$kelvikctl" --port $port show kelvik ""
complete_is "counters" "$kelvikctl" --port $port watch net ""
complete_is "" "$kelvikctl" --port 1 show ""
complete_is "$port" "$kelvikctl" --port $port
complete_is "-levelinfo" "$kelvikctl" send -leveli
complete_is "-leveldbg" "$kelvikctl" send -tid 1 -leveld
complete_is "--timeout" "$kelvikctl" level --t
complete_is "--for" "$kelvikctl" attach --f
complete_is "logs" "$kelvikctl" lo
complete_is "--follow" "$kelvikctl" logs --config x --f
complete_is "$1/kelvikctl.bash" "$kelvikctl" check "$1/kelvikc"
complete_is "$1/kelvikctl.bash" "$kelvikctl" logs --config "$1/kelvikc"
complete_is "fatal" kelviklog --level f
complete_is "--count --config" kelviklog --co
complete_is "--escape" kelviklog --esc
complete_is "--progress" kelviklog --pro
exit $failed
BASH
