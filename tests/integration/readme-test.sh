#!/bin/sh
# Every block of code in README.md is run as a newcomer would, in a folder that looks like the project's.
# Only the port of the console and the folder /tmp are other ones, waiting is shorter, and what would
# build everything anew is only planned: the two commands are run by whoever runs this.
#   readme-test.sh SOURCE-FOLDER BUILD-FOLDER CMAKE C-COMPILER C++-COMPILER
set -u
source=$1
build=$2
cmake=$3
export CC="$4" CXX="$5"
unset DESTDIR CMAKE_PREFIX_PATH Kelvik_DIR LD_LIBRARY_PATH

work=$(mktemp -d) || exit 1
finish() {
  [ ! -s "$work/operated" ] || kill "$(cat "$work/operated")" 2> /dev/null
  rm -rf "$work"
}
trap finish EXIT
trap 'exit 1' HUP INT TERM

fail() {
  echo "FAILED: $1"
  [ ! -s "$work/out" ] || cat "$work/out"
  exit 1
}

place=$work/project
mkdir -p "$place/build" "$work/app" "$work/tmp" "$work/bin" "$work/home"
for path in "$source"/*; do
  [ "$path" = "$source/build" ] || ln -s "$path" "$place/" || exit 1
done
ln -s "$build" "$place/build/demo"
export HOME="$work/home" TMPDIR="$work/tmp"
ln -s "$(command -v "$CC")" "$work/bin/cc"
PATH=$work/bin:$(dirname "$cmake"):$PATH

port=$((20000 + $$ % 10000))
while grep -qi ":$(printf '%04X' $port) " /proc/net/udp; do port=$((port + 1)); done

# block LANGUAGE NUMBER: so many blocks of code of that language down the page.
block() {
  awk -v language="$1" -v number="$2" '
    /^```/ { inside = !inside && $0 == "```" language && ++count == number; open = !open
             if (!open) inside = 0; next }
    inside' "$source/README.md" |
    sed -e "s|/tmp/|$work/tmp/|g; s|^kelvikctl |&--port $port |; s|--for [0-9]*|--for 0.3|" \
      -e "s|sysmon --config|sysmon --port $port --config|" \
      -e "s|^kelvikctl --port $port logs|sleep 2; &|" # a record in the buffer takes the next one to be written
}

# run NUMBER FOLDER: a shell block, which must succeed line by line; its output is in the file out.
run() {
  block sh "$1" > "$work/block"
  [ -s "$work/block" ] || fail "README.md has no shell block $1"
  (cd "$2" && sh -eux "$work/block") > "$work/out" 2>&1 < /dev/null || fail "block $1 of README.md"
}

must_say() {
  grep -q -e "$1" "$work/out" || fail "there is no line with '$1'"
}

blocks=$(grep -c '^```sh$' "$source/README.md")
[ "$blocks" = 7 ] || fail "README.md has $blocks shell blocks, this test knows 7"

# 1: the two commands
block sh 1 | sed 's/#.*//' > "$work/block"
while read -r shell script; do
  { [ "$shell" = sh ] && sh -n "$source/$script"; } || fail "$shell $script"
done < "$work/block"
grep -q scripts/demo.sh "$work/block" || fail "the first block does not name scripts/demo.sh"

# 2: the program in C
block c 1 > "$place/hello.c"
[ "$(grep -c . "$place/hello.c")" -le 13 ] || fail "the example in C has grown"
run 2 "$place"
# cc -o ... and ./hello say what is shown, the moment apart.
when='^[0-9-]* [0-9:]*\.[0-9]* '
block text 1 | sed "s/$when//" > "$work/shown"
grep -v '^+ ' "$work/out" | tr -d '\033' | sed "s/\\[0m//g; s/\\[33m//g; s/$when//; /^\$/d" > "$work/said"
diff "$work/shown" "$work/said" || fail "the example in C says (>) other than what is shown (<)"
cat "$work"/tmp/*.log > "$work/logged" || fail "the example in C left no file"
[ "$(grep -c '\[net\]\[link\] eth[01]' "$work/logged")" = 2 ] || fail "the file has other records"
rm -f "$work"/tmp/*.log

# 3: the pipe
run 3 "$place"
cat "$work"/tmp/disk/*.log > "$work/out" || fail "the pipe left no file"
must_say '\[disk\].*%'

# 4 and 5: sysmon in a terminal, and its operator.
block sh 4 | sed "s|^build/demo/examples/sysmon|echo \$\$ > $work/operated; exec &|" > "$work/block"
(cd "$place" && exec script -qec "exec sh -eu $work/block" "$work/terminal") < /dev/null \
  > "$work/script.out" 2>&1 &
terminal=$!
tries=100
until "$build/tools/kelvikctl/kelvikctl" --port $port status > "$work/out" 2>&1; do
  tries=$((tries - 1))
  [ $tries -gt 0 ] || fail "sysmon does not answer: $(cat "$work/terminal")"
  sleep 0.1
done
run 5 "$place"
for said in '^\[Log level\]' '^net counters' 'debug for module disk is on for' \
  '100 was passed to net interval' '\[net\]\[sample\]' 'node = /dev/pts/'; do
  must_say "$said"
done
[ "$(sed '1,/^+ kelvikctl.* logs/d' "$work/out" | grep -c '\[sample\]')" = 5 ] ||
  fail "kelvikctl logs does not print five records"
grep -q 'LevelDbg=1' "$place/sysmon.ini" || fail "the settings were not saved"
kill -INT "$(cat "$work/operated")"
wait $terminal || fail "sysmon did not end well: $(cat "$work/terminal")"
rm "$work/operated"
grep -q 'signal 2: sysmon ends' "$work/terminal" || fail "sysmon's end is not on its terminal"

# 6 and 7: installed, and linked by a project of its own. The build is that of the test.
ln -s "$build" "$place/build/release"
block sh 6 | sed -e "s|^cmake --preset release|& -S . -B build/planned|" \
  -e "s|^cmake --build build/release|& -- -n|" > "$work/block"
(cd "$place" && sh -eux "$work/block") > "$work/out" 2>&1 < /dev/null || fail "block 6 of README.md"
block cmake 1 > "$work/app/CMakeLists.txt"
cp "$place/hello.c" "$work/app/" || exit 1
run 7 "$work/app"
"$work/app/build/app" > "$work/out" || fail "the program of block 7 does not run"
must_say '\[net\]\[link\] eth0 is up'

# --- The picture is light and shows what the programs print ---
[ "$(wc -c < "$source/docs/terminal.svg")" -lt 61440 ] || fail "docs/terminal.svg is heavy"
grep -q '\[pump\]\[control\]' "$source/docs/terminal.svg" || fail "docs/terminal.svg shows no record"

# --- What README.md links to is there ---
grep -o '](\([^)#]*\)' "$source/README.md" | sed 's/^](//' | grep -v '^http' > "$work/links"
[ "$(wc -l < "$work/links")" -gt 10 ] || fail "README.md has few links"
while read -r link; do
  [ -e "$source/$link" ] || fail "README.md links to $link, which is not there"
done < "$work/links"
echo "the $blocks shell blocks of README.md, its program and its links hold"
