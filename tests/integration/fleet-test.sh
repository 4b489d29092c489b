#!/bin/sh
# Records of programs reach a second machine's files through real rsyslogds: one takes them from
# /dev/log and forwards them by TCP to another, which writes them. Both run with the configuration that
# docs/fleet.md shows, in a mount namespace whose /dev is private, so that this machine's own log is not
# touched.
#   fleet-test.sh KELVIKLOG FLEET-DEVICE GUIDE TIME-FACTOR
# The package rsyslog may be unpacked in build/rsyslog, or in the folder that KELVIK_RSYSLOG names; else
# the installed one is taken.
# Exit code 77: something needed is missing here, nothing was tested.
set -u
kelviklog=$1
device=$2
guide=$3
factor=$4

skip() {
  echo "SKIPPED: $1; the road to rsyslog was not tried"
  exit 77
}

PATH=$PATH:/usr/sbin:/sbin
rsyslogd=${KELVIK_RSYSLOG:-$(dirname "$guide")/../build/rsyslog}/usr/sbin/rsyslogd
if [ ! -x "$rsyslogd" ]; then
  rsyslogd=$(command -v rsyslogd) || skip "rsyslogd is not installed"
fi
modules=$(find -H "${rsyslogd%/sbin/rsyslogd}/lib" -name imuxsock.so 2> /dev/null | head -n 1)
[ -n "$modules" ] || skip "rsyslogd has no imuxsock.so"
modules=$(dirname "$modules")

# Again, in namespaces of our own; users other than root need one for users as well.
if [ -z "${KELVIK_FLEET_INSIDE:-}" ]; then
  user=
  [ "$(id -u)" = 0 ] || user=-r
  command -v unshare > /dev/null 2>&1 || skip "there is no unshare"
  unshare -m $user mount -t tmpfs none /mnt 2> /dev/null || skip "there are no mount namespaces"
  exec env KELVIK_FLEET_INSIDE=1 unshare -m $user sh "$0" "$@"
fi

work=$(mktemp -d) || exit 1
running=
# Ends what was started, by process id, and waits for it.
finish() {
  for pid in $running; do kill -CONT "$pid" 2> /dev/null; kill "$pid" 2> /dev/null; done
  # shellcheck disable=SC2086
  [ -z "$running" ] || wait $running
  umount -l /dev 2> /dev/null
  rm -rf "$work"
}
trap finish EXIT
trap 'exit 1' HUP INT TERM

fail() {
  echo "FAILED: $1"
  for file in "$work"/*.out; do
    [ ! -s "$file" ] || { echo "--- $(basename "$file")"; tail -n 20 "$file"; }
  done
  exit 1
}

# A /dev with what programs need and nothing else, until the namespace ends.
mkdir "$work/dev" || exit 1
mount -t tmpfs none "$work/dev" || skip "a tmpfs cannot be mounted"
for node in null zero random urandom; do
  touch "$work/dev/$node"
  mount --bind /dev/$node "$work/dev/$node" || skip "a device cannot be mounted"
done
mount --move "$work/dev" /dev || skip "a private /dev cannot be mounted"

# --- The configuration files of the guide, with this place's folders and port ---

port=$((20000 + $$ % 10000))
while grep -qi ":$(printf '%04X' $port) " /proc/net/tcp; do port=$((port + 1)); done
for name in device collector; do
  mkdir "$work/$name-spool"
  awk -v name=$name.conf '/^```/ { inside = ($2 == name); next } inside' "$guide" |
    sed -e "s|collector\\.example|127.0.0.1|; s|5514|$port|; s|/var/log/fleet|$work/logs|" \
      -e "s|/var/spool/rsyslog|$work/$name-spool|; s|resumeInterval=\"10\"|resumeInterval=\"1\"|" \
      > "$work/$name.conf"
  grep -q 'type="[io]m' "$work/$name.conf" || fail "the guide does not show $name.conf"
  "$rsyslogd" -N1 -M "$modules" -f "$work/$name.conf" > "$work/check.out" 2>&1 ||
    fail "rsyslogd refuses the guide's $name.conf"
done
grep -q "port=\"$port\"" "$work/device.conf" || fail "the port of device.conf was not replaced"
# This test alone need not wait for full buffers.
sed -i 's/flushInterval="1"/flushInterval="1" flushOnTXEnd="on"/' "$work/collector.conf"

# --- Starting, ending and waiting ---

# await WHAT COMMAND...: until the command succeeds.
await() {
  what=$1
  shift
  tries=$((300 * factor))
  until "$@"; do
    tries=$((tries - 1))
    [ $tries -gt 0 ] || fail "$what"
    sleep 0.1
  done
}

start() {
  "$rsyslogd" -n -M "$modules" -f "$work/$1.conf" -i "$work/$1.pid" > "$work/$1.out" 2>&1 &
  started=$!
  running="$running $started"
}

# end PID
end() {
  kill "$1"
  wait "$1"
  rest=
  for pid in $running; do [ "$pid" = "$1" ] || rest="$rest $pid"; done
  running=$rest
}

listens() { grep -qi "^ *[0-9]*: [0-9A-F]*:$(printf '%04X' $port) [0-9A-F]*:0000 0A" /proc/net/tcp; }
# What rsyslogd says of itself is left out.
written() {
  cat "$work"/logs/*/*.log 2> /dev/null |
    grep -v -e '^[^ ]* syslog\.[a-z]* rsyslogd\[' -e '\[fleet\]\[lost\] lost$'
}
has() { [ "$(written | wc -l)" -ge "$1" ]; }

start collector
collector=$started
await "the collector does not listen" listens
start device
engine=$started
await "there is no /dev/log" test -S /dev/log

# --- A burst of 10,000 records, the engine asleep when it begins, and a second program beside it ---

# What goes in, "<priority>text", and beside it what must come out.
awk -v input="$work/input" -v expected="$work/expected" 'BEGIN {
  split("crit err warning info debug", name)
  split("2 3 4 6 7", priority)
  for (i = 0; i < 3500; ++i) long = long "x"
  for (i = 1; i <= 10000; ++i) {
    level = i % 5 + 1
    text = i " 100% of %s\tp\303\244th=/a b/ \"q\" #" (i % 500 == 0 ? long : "")
    printf "<%s>%s\n", priority[level], text > input
    printf "user.%s kelviklog [fleet][burst] %s\n", name[level], text > expected
  }
}'

kill -STOP "$engine"
"$kelviklog" --module fleet --title burst --priority-prefix --no-terminal --syslog "$work/input" \
  > "$work/kelviklog.out" 2>&1 &
burst=$!
running="$running $burst"
"$device" 250 > "$work/device-pid" 2> "$work/sensord.out" &
sensord=$!
running="$running $sensord"
sleep 0.3
kill -CONT "$engine"
wait $burst || fail "kelviklog did not deliver every record"
wait $sensord || fail "the second program could not log every record"
running="$collector $engine"
await "not all of 10,500 records arrived" has 10500

pid=$(cat "$work/device-pid")
awk -v pid="$pid" 'BEGIN {
  split("debug info warning err crit", name)
  for (i = 0; i < 250; ++i) {
    printf "local3.%s sensord[%s] [device][hot] reading %d\n", name[i % 5 + 1], pid, i
    printf "local3.%s sensord[%s] [device][cold] reading %d\n", name[i % 5 + 1], pid, i
  }
}' >> "$work/expected"

# compare WHAT: all that is written, without its times, against all that is expected.
compare() {
  sleep 0.5 # for a record that comes twice
  written | sed 's/^[^ ]* //; s/^\([^ ]* [^ ]*\)\[-\]/\1/' | LC_ALL=C sort > "$work/is"
  LC_ALL=C sort "$work/expected" > "$work/should"
  cmp -s "$work/should" "$work/is" && return
  diff "$work/should" "$work/is" | cut -c 1-150 | head -n 20
  fail "$1: other records arrived (>) than were logged (<)"
}
compare "the burst"
echo "10,500 records of two programs arrived once each"

# --- The link is down, the device restarts meanwhile ---

end "$collector"
# A record into the connection that broke: TCP may lose it, and with it the engine learns of the break.
echo "lost" | "$kelviklog" -m fleet -t lost --no-terminal --syslog || fail "kelviklog failed"
await "the engine does not notice that the link is down" grep -q 'cannot connect' "$work/device.out"
for phase in before after; do
  for number in 1 2 3 4 5 6 7 8 9 10; do
    printf '<3>%s %s\n' $phase $number
    echo "user.err kelviklog [fleet][down] $phase $number" >> "$work/expected"
  done | "$kelviklog" -m fleet -t down --priority-prefix --no-terminal --syslog ||
    fail "kelviklog failed while the link is down"
  [ $phase = after ] && continue
  sleep 0.5
  end "$engine"
  [ -n "$(find "$work/device-spool" -name 'fleet.*')" ] || fail "nothing was kept on disk"
  start device
  engine=$started
  await "there is no /dev/log after a restart" test -S /dev/log
done
start collector
collector=$started
await "not all records arrived once the link was back" has 10520
compare "the restart"
echo "20 records logged while the link was down, 10 of them before a restart, arrived once each"
