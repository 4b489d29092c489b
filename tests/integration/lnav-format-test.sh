#!/bin/sh
# What lnav makes of a log file of the library's with the format that comes with it.
#   lnav-format-test.sh FORMAT LNAV-RECORDS
# Exit code 77: there is no lnav here, nothing was tested.
set -u
if ! command -v lnav > /dev/null 2>&1; then
  echo "SKIPPED: lnav is not installed; its format was not tried"
  exit 77
fi
work=$(mktemp -d) || exit 1
trap 'rm -rf "$work"' EXIT
trap 'exit 1' HUP INT TERM
# Nothing of the user's own settings, and nothing left in them.
HOME=$work XDG_CONFIG_HOME=$work/config TMPDIR=$work TERM=xterm LC_ALL=C.UTF-8
export HOME XDG_CONFIG_HOME TMPDIR TERM LC_ALL
mkdir -p "$work/log" "$work/lnav/formats/kelvik" "$work/config" || exit 1
cp "$1" "$work/lnav/formats/kelvik/" || exit 1

if ! lnav -C -I "$work/lnav" > "$work/check" 2>&1 < /dev/null; then
  echo "FAILED: lnav refuses the format"
  cat "$work/check"
  exit 1
fi

"$2" "$work/log/" > /dev/null || { echo "FAILED: no records"; exit 1; }
lnav -n -I "$work/lnav" \
  -c ';SELECT log_time, log_level, thread, module, title, file, function, line, log_body
      FROM kelvik_log' \
  -c ':write-csv-to -' "$work"/log/*.log > "$work/out" 2>&1 < /dev/null

# The time, and the thread id, which is one number for all that have it, differ from run to run.
sed -E -e 's/^[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\.[0-9]{3},/TIME,/' \
  -e 's/<NULL>//g' -e 's/^(TIME,[a-z]*),[0-9]+,/\1,THREAD,/' "$work/out" > "$work/seen"
cat > "$work/expected" << 'CSV'
log_time,log_level,thread,module,title,file,function,line,log_body
TIME,info,,net,link,,,,"eth0 is up, [fast] at 100 Mbit/s"
TIME,error,,disk,scan,disk.c,ScanDisk,42,error: no sector 7
TIME,warning,THREAD,net,link,src/net.c,OnCarrier,118,warning: carrier lost
TIME,info,THREAD,net,link,,,,"two
lines"
TIME,error,THREAD,mem,,,,,failed to grow
TIME,info,THREAD,,,,,,neither
CSV
if ! cmp -s "$work/expected" "$work/seen"; then
  echo "FAILED: lnav does not see what was logged"
  diff "$work/expected" "$work/seen"
  cat "$work"/log/*.log
  exit 1
fi
echo "lnav sees time, thread, module, title, location and text"
