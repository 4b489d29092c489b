#!/bin/sh
# The service files of sysmon: systemd takes the unit, and the init script starts, shows and ends the
# program.
#   service-test.sh SERVICE-FOLDER SYSMON KELVIKCTL
# Exit code 77: a part could not be tried here.
set -u
files=$1
sysmon=$2
kelvikctl=$3
work=$(mktemp -d) || exit 1
finish() {
  [ ! -s "$work/pid" ] || kill "$(cat "$work/pid")" 2>/dev/null
  rm -rf "$work"
}
trap finish EXIT
trap 'exit 1' HUP INT TERM
skipped=
fail() {
  echo "FAILED: $*"
  exit 1
}

sh -n "$files/sysmon.init" || fail "the init script is no script"
[ -x "$files/sysmon.init" ] || fail "the init script cannot be executed"
grep -q '^# Provides: *sysmon$' "$files/sysmon.init" || fail "the init script says not what it is"

if command -v systemd-analyze > /dev/null 2>&1; then
  # The program stands elsewhere here.
  sed "s,/usr/local/bin/sysmon,$sysmon," "$files/sysmon.service" > "$work/sysmon.service"
  systemd-analyze verify "$work/sysmon.service" > "$work/out" 2>&1 || { cat "$work/out"; fail "the unit"; }
  if grep -F sysmon.service "$work/out"; then fail "the unit"; fi
else
  echo "SKIPPED: systemd-analyze is not installed; the unit was not checked"
  skipped=1
fi

PATH=$PATH:/usr/sbin:/sbin
if ! command -v start-stop-daemon > /dev/null 2>&1; then
  echo "SKIPPED: start-stop-daemon is not installed; the init script was not run"
  exit 77
fi
port=$((33000 + $$ % 2000))
while grep -qi ":$(printf '%04X' $port) " /proc/net/udp; do port=$((port + 1)); done
cat > "$work/default" << END
DAEMON=$sysmon
STATE=$work/state
LOGS=$work/logs
FIRST_SETTINGS=$work/sysmon.ini
PIDFILE=$work/pid
ARGUMENTS="--port $port"
END
sed "s,/var/log/sysmon/,$work/logs/," "$files/sysmon.ini" > "$work/sysmon.ini"

# service ACTION EXIT-CODE TEXT
service() {
  SYSMON_DEFAULTS=$work/default "$files/sysmon.init" "$1" > "$work/out" 2>&1 < /dev/null
  code=$?
  [ $code = "$2" ] && grep -q "$3" "$work/out" && return
  cat "$work/out"
  fail "$1 ended with $code, not with $2 and '$3'"
}

service status 3 'does not run'
service start 0 started
service start 0 'runs already'
service status 0 'runs as process'
tries=100
until "$kelvikctl" --port $port show mem usage > "$work/out" 2>&1; do
  tries=$((tries - 1))
  [ $tries -gt 0 ] || { cat "$work/out"; fail "sysmon does not answer"; }
  sleep 0.1
done
grep -q 'total [0-9]* KiB' "$work/out" || fail "sysmon shows no memory"
service stop 0 stopped
service status 3 'does not run'
service stop 0 'does not run'
cat "$work"/logs/*.log | grep -q 'sysmon ends' || fail "the last record was not written"
grep -q '^fileName_0=.*/logs/' "$work/state/sysmon.ini" || fail "the settings were not kept"

# A number that belongs to another program is no reason to kill that.
sleep 60 &
sleeper=$!
echo $sleeper > "$work/pid"
service stop 0 'does not run'
kill $sleeper || fail "the init script killed another program"
service nonsense 2 usage
[ -z "$skipped" ] || exit 77
