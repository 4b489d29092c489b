#!/bin/sh
# Shows the main job on real input: the machine's own text through kelviklog to the coloured terminal
# and into a ring of small files, which a second kelviklog goes on with; then a running program, which
# an operator questions and changes with kelvikctl. Asks nothing; leaves only build/ behind.
set -u
cd "$(dirname "$0")/.." || exit 1
. scripts/lib.sh

ring_files=4
ring_kib=16

# shellcheck disable=SC2086
need_packages $kelvik_build_packages || exit 1

# A release build that is there is used under the name of build/demo; else a smaller one is made.
build=build/demo
mkdir -p build
[ -e $build ] || rm -f $build
[ -e $build ] || [ ! -f build/release/CMakeCache.txt ] || ln -s release $build
if [ ! -f $build/CMakeCache.txt ]; then
  mkdir -p $build
  cmake --preset release -B $build -DKELVIK_BUILD_TESTS=OFF -DKELVIK_BUILD_EXAMPLES=ON \
    > $build/configure.log 2>&1 || { cat $build/configure.log; exit 1; }
fi
echo "Building kelviklog, kelvikctl and sysmon..."
cmake --build $build --target kelviklog kelvikctl sysmon > $build/demo-build.log 2>&1 ||
  { cat $build/demo-build.log; exit 1; }
kelviklog=$build/tools/kelviklog/kelviklog
kelvikctl=$build/tools/kelvikctl/kelvikctl
sysmon_pid=

work=$(mktemp -d) || exit 1
finish() {
  [ -z "$sysmon_pid" ] || kill "$sysmon_pid" 2>/dev/null
  rm -rf "$work"
}
trap finish EXIT
trap 'exit 1' HUP INT TERM

# Real text: a system log where there is one that may be read, else what the build says.
source=
for log in /var/log/syslog /var/log/messages /var/log/kern.log /var/log/dpkg.log; do
  if [ -z "$source" ] && [ -s $log ] && [ -r $log ]; then
    tail -n 5000 $log > "$work/text"
    source=$log
  fi
done
if [ -z "$source" ] && journalctl -q --no-pager -n 5000 > "$work/text" 2>/dev/null &&
  [ -s "$work/text" ]; then
  source=journalctl
fi
if [ -z "$source" ]; then
  cat $build/*.log > "$work/text"
  cmake --build $build --target kelviklog -- -t commands >> "$work/text"
  source="the build's own output"
fi

# A line's level stands before it, as service managers write it: <3> error, <4> warning, <6> info,
# <7> debug.
LC_ALL=C tr -d '\000' < "$work/text" | LC_ALL=C cut -b 1-1000 | LC_ALL=C awk '
  { word = tolower($0) }
  word ~ /panic|emerg|fatal/                { print "<2>" $0; next }
  word ~ /error|fail|denied|cannot|unable|half-/ { print "<3>" $0; next }
  word ~ /warn|deprecat|retry|missing/      { print "<4>" $0; next }
  word ~ /debug|status|-t |unpack/          { print "<7>" $0; next }
                                            { print "<6>" $0 }' > "$work/levels"

# Enough of it to turn the ring several times; the last file and a half of it come after the restart.
copies=0
while [ $copies -lt 200 ] && { [ ! -f "$work/input" ] ||
  [ "$(wc -c < "$work/input")" -lt $((ring_files * ring_kib * 1024 * 3)) ]; }; do
  cat "$work/levels" >> "$work/input"
  copies=$((copies + 1))
done
lines=$(wc -l < "$work/input")
bytes=$(wc -c < "$work/input")
# A record is 35 bytes longer than its line: a time, the names and blanks for a level.
later=$((lines * ring_kib * 1024 * 3 / 2 / (bytes + lines * 35) + 1))
head -n $((lines - later)) "$work/input" > "$work/first"
tail -n $later "$work/input" > "$work/second"

config=$work/demo.ini
log_to_ring() {
  "$kelviklog" --module demo --title text --priority-prefix --no-terminal --dir "$work/ring" \
    --size $ring_kib --count $ring_files --config "$config" "$1"
}

# The ring's files from the oldest to the newest, as the configuration file lists them.
ring() {
  awk -F= '
    $1 == "LogIndex"     { newest = $2 }
    $1 ~ /^fileName_/    { sub(/^fileName_/, "", $1); path[$1 + 0] = $2; if ($1 + 1 > n) n = $1 + 1 }
    END { for (i = 1; i <= n; i++) { k = (newest + i) % n; if (path[k] != "") print path[k] } }' \
    "$config"
}

show_ring() {
  for path in $(ring); do
    printf '%8d bytes  %s  %s\n' "$(wc -c < "$path")" "$(basename "$path")" \
      "$(head -n 1 "$path" | cut -c 12-23) to $(tail -n 1 "$path" | cut -c 12-23)"
  done
}

say "Some lines of $source on the terminal, coloured by level"
{
  head -n 6 "$work/levels"
  for level in 3 2; do
    grep "^<$level>" "$work/levels" | head -n 3
  done
} | cut -c 1-80 |
  "$kelviklog" --module demo --title text --priority-prefix || exit 1

say "$((lines - later)) lines into a ring of $ring_files files of $ring_kib KiB, oldest file first"
mkdir "$work/ring"
log_to_ring "$work/first" || exit 1
show_ring
newest=$(ring | tail -n 1)
seam=$(wc -l < "$newest")

say "kelviklog starts anew with the same configuration file and logs $later lines more"
log_to_ring "$work/second" || exit 1
show_ring
echo "$(basename "$newest") was the newest: the second run went on behind its line $seam."
tail -n +"$seam" "$newest" | head -n 2 | cut -c 1-110

say "The last lines of the ring"
ring | xargs cat > "$work/kept"
tail -n 4 "$work/kept" | cut -c 1-110

# What is in the ring, without time and names, must be the end of what went in, without the levels.
kept=$(wc -l < "$work/kept")
files=$(ls "$work/ring" | wc -l)
cut -d ' ' -f 4- "$work/kept" > "$work/kept-text"
tail -n "$kept" "$work/input" | cut -c 4- > "$work/input-text"
if [ "$files" -gt $ring_files ] || [ "$files" != "$(ring | wc -l)" ] ||
  ! cmp -s "$work/kept-text" "$work/input-text"; then
  echo "The ring is not the end of the input, or its folder holds $files files."
  exit 1
fi

# --- A program that runs, and its operator ---

operated=$work/sysmon.ini
cat > "$operated" <<'END'
[Global]
OutputConsole=0
OutputFile=1
LogMaxSize=1
LogMaxCount=3
bufferSize=1
writeInterval=200
LevelInfo=1
END
echo "LogFilePath=$work/operated/" >> "$operated"
mkdir "$work/operated"
port=$((20000 + $$ % 10000))
while grep -qi ":$(printf '%04X' $port) " /proc/net/udp; do port=$((port + 1)); done

# Shows what an operator types, and does it.
operate() {
  echo "\$ kelvikctl --port $port $*"
  "$kelvikctl" --port $port "$@" || exit 1
}

say "sysmon runs in the background: it watches this machine's network, disks and memory"
$build/examples/sysmon --config "$operated" --port $port < /dev/null > "$work/sysmon.out" 2>&1 &
sysmon_pid=$!
tries=50
until "$kelvikctl" --port $port status > /dev/null 2>&1; do
  tries=$((tries - 1))
  [ $tries -gt 0 ] || { echo "sysmon does not answer"; cat "$work/sysmon.out"; exit 1; }
  sleep 0.1
done
operate ps | grep -e PID -e " $port "
operate status

say "Its operator shows what it has counted, switches debug on for the network, and hurries it"
operate list
operate show net counters
operate level debug on net
operate set net interval 100
sleep 2

say "The settings are saved, as its configuration file shows; its ring holds what debug logged"
operate save
sed -n '/^\[net\]/,/^$/p' "$operated"
config=$operated
show_ring
kill "$sysmon_pid"
wait "$sysmon_pid" || { echo "sysmon did not end well"; exit 1; }
sysmon_pid=
ring | xargs cat > "$work/kept"
tail -n 3 "$work/kept" | cut -c 1-110
if ! grep -q 'LevelDbg=1' "$operated" || ! grep -q '\[net\]\[sample\] lo: in' "$work/kept" ||
  ! tail -n 1 "$work/kept" | grep -q 'sysmon ends'; then
  echo "The operator's changes did not come through."
  exit 1
fi

say "What you saw"
echo "kelviklog gave each line a time, a module and a title, coloured it by its level, and wrote it" \
  "to files that are renewed at $ring_kib KiB; after its restart it went on in the file it had left."
echo "Of $lines lines the newest $kept are kept, the last line included, in $files files, and the disk" \
  "never held more than $((ring_files * ring_kib)) KiB of them and one record a file."
echo "kelvikctl read and changed a program that was running: one module's level, a number of its own" \
  "and what it keeps for its next start."
