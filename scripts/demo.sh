#!/bin/sh
# Shows the main job on real input: the machine's own text through kelviklog to the coloured terminal
# and into a ring of small files. Asks nothing; leaves only build/ behind.
set -u
cd "$(dirname "$0")/.." || exit 1
. scripts/lib.sh

ring_files=4
ring_kib=16

# shellcheck disable=SC2086
need_packages $kelvik_build_packages || exit 1

# A release build that is there is brought up to date; else a smaller one is made.
build=build/release
if [ ! -f $build/CMakeCache.txt ]; then
  build=build/demo
  mkdir -p $build
  cmake --preset release -B $build -DKELVIK_BUILD_TESTS=OFF -DKELVIK_BUILD_EXAMPLES=OFF \
    > $build/configure.log 2>&1 || { cat $build/configure.log; exit 1; }
fi
echo "Building kelviklog..."
cmake --build $build --target kelviklog > $build/demo-build.log 2>&1 ||
  { cat $build/demo-build.log; exit 1; }
kelviklog=$build/tools/kelviklog/kelviklog

work=$(mktemp -d) || exit 1
trap 'rm -rf "$work"' EXIT
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
awk '
  { word = tolower($0) }
  word ~ /panic|emerg|fatal/                { print "<2>" $0; next }
  word ~ /error|fail|denied|cannot|unable/  { print "<3>" $0; next }
  word ~ /warn|deprecat|half-|retry|missing/ { print "<4>" $0; next }
  word ~ /debug|status|-t |unpack/          { print "<7>" $0; next }
                                            { print "<6>" $0 }' "$work/text" > "$work/levels"

# Enough of it to turn the ring several times.
copies=0
while [ $copies -lt 200 ] && { [ ! -f "$work/input" ] ||
  [ "$(wc -c < "$work/input")" -lt $((ring_files * ring_kib * 1024 * 3)) ]; }; do
  cat "$work/levels" >> "$work/input"
  copies=$((copies + 1))
done
lines=$(wc -l < "$work/input")

say "The first lines of $source on the terminal, coloured by level"
head -n 12 "$work/levels" | cut -c1-110 |
  $kelviklog --module demo --title text --priority-prefix --terminal --no-file || exit 1

say "$lines lines into a ring of $ring_files files of $ring_kib KiB"
mkdir "$work/ring"
$kelviklog --module demo --title text --priority-prefix --no-terminal --file --dir "$work/ring" \
  --size $ring_kib --count $ring_files < "$work/input" || exit 1
ls -l "$work/ring" | awk 'NR > 1 { printf "%8d bytes  %s\n", $5, $NF }'

say "The last lines of the ring"
files=$(ls "$work/ring" | wc -l)
for name in $(ls -tr "$work/ring"); do
  cat "$work/ring/$name"
done > "$work/kept"
tail -n 4 "$work/kept" | cut -c1-110

last=$(tail -n 1 "$work/input" | cut -c4-)
if [ "$files" -gt $ring_files ] || ! tail -n 1 "$work/kept" | grep -qF -- "$last"; then
  echo "The ring does not end with the input's last line, or holds $files files."
  exit 1
fi
kept=$(wc -l < "$work/kept")

say "What you saw"
echo "kelviklog gave each line a time, a module and a title, coloured it by its level, and wrote it" \
  "to files that are renewed at $ring_kib KiB."
echo "Of $lines lines the newest $kept are kept in $files files, the last line included, and the disk" \
  "never held more than $((ring_files * ring_kib)) KiB of them and one record a file."
