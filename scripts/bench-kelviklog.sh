#!/bin/sh
# Pipes many numbered lines of real text through kelviklog into a ring of 10 files of 64 MiB, checks
# that the ring is the end of the input, and times it beside multilog and svlogd where they are
# installed.
#   sh scripts/bench-kelviklog.sh [lines]      10000000 lines unless it says otherwise
#   KELVIKLOG   the program (built from here)
#   TMPDIR      where the input and one ring at a time are kept (/tmp): 2 GB for 10000000 lines
set -u
export LC_ALL=C
cd "$(dirname "$0")/.." || exit 1
. scripts/lib.sh

lines=${1:-10000000}
if ! [ "$lines" -gt 0 ] 2>/dev/null; then
  echo "usage: sh scripts/bench-kelviklog.sh [lines]"
  exit 64
fi

if [ -z "${KELVIKLOG:-}" ]; then
  # shellcheck disable=SC2086,SC2154
  need_packages $kelvik_build_packages || exit 1
  build=build/release
  if [ ! -f $build/CMakeCache.txt ]; then
    build=build/demo
    mkdir -p $build
    cmake --preset release -B $build -DKELVIK_BUILD_TESTS=OFF -DKELVIK_BUILD_EXAMPLES=OFF \
      > $build/configure.log 2>&1 || { cat $build/configure.log; exit 1; }
  fi
  cmake --build $build --target kelviklog > $build/bench-build.log 2>&1 ||
    { cat $build/bench-build.log; exit 1; }
  KELVIKLOG=$PWD/$build/tools/kelviklog/kelviklog
fi

work=$(mktemp -d) || exit 1
trap 'rm -rf "$work"' EXIT
trap 'exit 1' HUP INT TERM

# The machine's own text: its log of packages, licences, headers, scripts.
find /var/log/dpkg.log /usr/share/common-licenses /usr/include /usr/share/perl "$PWD/src" \
  -type f -size -2000k -exec cat {} + 2>/dev/null | tr -d '\000' | cut -b 1-4000 |
  head -c 50000000 > "$work/text"
echo >> "$work/text"
# Numbered, so that a loss of any length shows.
while :; do cat "$work/text" || break; done 2>/dev/null | head -n "$lines" |
  awk '{ print NR, $0 }' > "$work/input"
rm "$work/text"
if [ "$(wc -l < "$work/input")" -ne "$lines" ]; then
  echo "The input could not be made: is $work full?"
  exit 1
fi
bytes=$(wc -c < "$work/input")
echo "$lines lines, $bytes bytes, $((bytes / lines)) bytes a line"

# run NAME COMMAND...: the input through a pipe into the command; prints how long it took.
run() {
  name=$1
  shift
  start=$(date +%s.%N)
  # The command's exit code is the pipe's.
  # shellcheck disable=SC2002
  cat "$work/input" | "$@"
  code=$?
  end=$(date +%s.%N)
  awk -v name="$name" -v start="$start" -v end="$end" -v lines="$lines" -v bytes="$bytes" 'BEGIN {
    s = end - start
    printf "%-28s %8.2f s %12.0f lines/s %8.1f MB/s\n", name, s, lines / s, bytes / s / 1e6 }'
  return $code
}

mkdir "$work/ring"
config=$work/bench.ini
run "kelviklog, 10 x 64 MiB" "$KELVIKLOG" --module bench --no-terminal --dir "$work/ring" \
  --size 65536 --count 10 --config "$config" || { echo "kelviklog failed"; exit 1; }

# The ring's files from the oldest to the newest, as the configuration file lists them.
ring() {
  awk -F= '
    $1 == "LogIndex"     { newest = $2 }
    $1 ~ /^fileName_/    { sub(/^fileName_/, "", $1); path[$1 + 0] = $2; if ($1 + 1 > n) n = $1 + 1 }
    END { for (i = 1; i <= n; i++) { k = (newest + i) % n; if (path[k] != "") print path[k] } }' \
    "$config"
}

kept=$(ring | xargs cat | wc -l)
files=$(find "$work/ring" -type f | wc -l)
tail -n "$kept" "$work/input" > "$work/expected"
# "2024-03-15 08:30:00.123 [bench] " are 32 bytes.
if [ "$kept" -lt 1 ] || [ "$files" -gt 10 ] ||
  ! ring | xargs cat | cut -b 33- | cmp - "$work/expected"; then
  echo "FAILED: the ring of $files files is not the end of the input ($kept lines kept)"
  exit 1
fi
echo "The ring holds the last $kept lines in $files files, equal to the input's, prefix removed"
rm -rf "$work/ring" "$work/expected"

if command -v multilog >/dev/null 2>&1; then
  # Its largest file is 16 MiB.
  run "multilog t, 10 x 16 MiB" multilog t s16777215 n10 "$work/multilog"
  rm -rf "$work/multilog"
else
  echo "multilog is not installed (package daemontools): not compared"
fi
if command -v svlogd >/dev/null 2>&1; then
  mkdir "$work/svlogd"
  printf 's67108864\nn10\n' > "$work/svlogd/config"
  run "svlogd -tt, 10 x 64 MiB" svlogd -tt "$work/svlogd"
else
  echo "svlogd is not installed (package runit): not compared"
fi
