#!/bin/sh
# kelvikctl as an operator uses it: in a real terminal (tmux), with its keys and colours, against a
# process in another one.
#   kelvikctl-tmux-test.sh KELVIKCTL SYSMON TIME-FACTOR
# Exit code 77: there is no tmux here, nothing was tested.
set -u
kelvikctl=$1
sysmon=$2
factor=$3

if ! command -v tmux > /dev/null 2>&1; then
  echo "SKIPPED: tmux is not installed; kelvikctl was not tried in a terminal"
  exit 77
fi

work=$(mktemp -d) || exit 1
# A server of our own, which ends with its last window, and everything in it.
terminal() { tmux -S "$work/tmux" -f /dev/null "$@"; }
finish() {
  terminal kill-server 2> /dev/null
  rm -rf "$work"
}
trap finish EXIT
trap 'exit 1' HUP INT TERM

# A port that nobody has, below those that the system hands out.
port=$((20000 + $$ % 10000))
while grep -qi ":$(printf '%04X' $port) " /proc/net/udp; do port=$((port + 1)); done

LC_ALL=C.UTF-8
TERM=xterm-256color
PS1='op> '
export LC_ALL TERM PS1
terminal new-session -d -x 120 -y 40 -s t -n process "exec '$sysmon' --port $port" || exit 1
terminal new-window -d -t t -n operator "PS1='op> ' exec sh -i" || exit 1

ctl() { "$kelvikctl" --port $port --timeout $((5 * factor)) "$@"; }
keys() { terminal send-keys -t t:operator "$@"; }
# A window's lines from its start, colours as escape sequences.
screen() { terminal capture-pane -e -p -J -S - -t "t:$1"; }

fail() {
  echo "FAILED: $1"
  for window in process operator; do
    echo "--- $window"
    screen $window
  done
  exit 1
}

# Waits until so many of a window's lines match.
await() {
  tries=$((100 * factor))
  until [ "$(screen "$1" | grep -c -e "$3")" -ge "$2" ]; do
    tries=$((tries - 1))
    [ $tries -gt 0 ] || fail "$4"
    sleep 0.1
  done
}

escape=$(printf '\033')
yellow="$escape\\[33m"
cyan="$escape\\[36m"

# Makes the process print a record of its own, in yellow since it is an error.
complain() { ctl set net interval "$1" > /dev/null || fail "set net interval $1"; }

await operator 1 '^op> ' "there is no prompt"
tries=50
until ctl status > "$work/status" 2>&1; do
  tries=$((tries - 1))
  [ $tries -gt 0 ] || fail "sysmon does not answer: $(cat "$work/status")"
  sleep 0.1
done

keys "'$kelvikctl' --port $port status" Enter
await operator 1 '^\[Log level\] debug:false info:true' "status does not show the levels"

# A record goes to the process's own terminal, in its colour.
complain 11
await process 1 "$yellow.*11 is not" "the process prints no yellow record"

# Attached, it comes here instead, colour and all.
keys "'$kelvikctl' --port $port attach" Enter
await operator 1 'node = /dev/pts/' "attach does not attach"
complain 12
await operator 1 "$yellow.*12 is not" "the attached terminal shows no yellow record"
ctl focus net > /dev/null || fail "focus"
complain 500
await operator 1 "$cyan.*a sample every 500 ms" "the module in focus is not cyan"
ctl focus off > /dev/null || fail "focus off"

# Ctrl-Z: the output goes back before kelvikctl stops; fg attaches again.
keys C-z
await operator 1 'Stopped' "Ctrl-Z does not stop attach"
complain 13
await process 1 "$yellow.*13 is not" "the output is not back while attach is stopped"
keys fg Enter
await operator 2 'node = /dev/pts/' "attach does not attach again"
complain 14
await operator 1 "$yellow.*14 is not" "nothing comes after fg"

# Ctrl-C: back for good, exit code 0.
keys C-c
await operator 4 '^op> ' "Ctrl-C does not end attach"
keys 'echo code=$?' Enter
await operator 1 '^code=0' "attach ended by Ctrl-C does not return 0"
complain 15
await process 1 "$yellow.*15 is not" "the output is not back after Ctrl-C"

keys "'$kelvikctl' --port $port attach --for 0.5; echo ended=\$?" Enter
await operator 1 '^ended=0' "attach --for does not end by itself"
complain 16
await process 1 "$yellow.*16 is not" "the output is not back after --for"

# A level that is held for a while is restored by Ctrl-C.
keys "'$kelvikctl' --port $port level debug on --for 600; echo held=\$?" Enter
await operator 1 'debug is on for 600 s' "level --for does not switch"
ctl status | grep -q 'debug:true' || fail "the level is not on"
keys C-c
await operator 1 '^held=0' "Ctrl-C does not end level --for"
ctl status | grep -q 'debug:false' || fail "the level is not restored"

# watch draws in place: however often, the heading stands there once.
keys "clear; '$kelvikctl' --port $port watch mem usage -n 0.1; echo watched=\$?" Enter
await operator 1 '^total [0-9]* KiB' "watch shows nothing"
sleep 1
[ "$(terminal capture-pane -p -t t:operator | grep -c '^mem usage')" = 1 ] ||
  fail "watch does not draw in place"
keys C-c
await operator 1 'watched=0' "Ctrl-C does not end watch with 0"

# What came here did not go there, and the other way round.
for number in 12 14; do
  if screen process | grep -q "$number is not"; then fail "$number reached both terminals"; fi
done
for number in 11 13 15 16; do
  if screen operator | grep -q "$number is not"; then fail "$number reached both terminals"; fi
done
echo "kelvikctl works in a terminal"
