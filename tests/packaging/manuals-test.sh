#!/bin/sh
# The manuals are well-formed, and say what the programs, headers and documents say.
#   manuals-test.sh SOURCE-FOLDER KELVIKLOG KELVIKCTL
# Exit code 77: mandoc is missing; the rest was compared.
set -u
source=$1
kelviklog=$2
kelvikctl=$3
man=$source/docs/man
work=$(mktemp -d) || exit 1
trap 'rm -rf "$work"' EXIT
trap 'exit 1' HUP INT TERM
failed=

# compare WHAT: the lines of $work/program and $work/manual as sets.
compare() {
  sort -u "$work/program" > "$work/program-sorted"
  sort -u "$work/manual" > "$work/manual-sorted"
  [ -s "$work/program-sorted" ] && diff -u "$work/program-sorted" "$work/manual-sorted" > "$work/diff" &&
    return
  echo "$1: program, header or document (-) and manual (+) differ"
  sed -n '3,$p' "$work/diff"
  failed=1
}

# The options of a help text, "--[no-]name" as two.
help_options() {
  sed -n 's/^  \(-.*\)/\1/p' | sed 's/  .*//; s/ Excludes:.*//' | tr ', ' '\n\n' | grep '^-' |
    sed -n 's/^--\[no-\]\(.*\)/--\1\n--no-\1/p; t; p'
}

# The options in the lines of an mdoc text: what follows Fl, up to the next word.
manual_options() {
  awk '{ for (i = 1; i < NF; i++) if ($i == "Fl") print "-" $(i + 1) }'
}

"$kelviklog" --help | help_options > "$work/program"
grep '^\.It Fl' "$man/kelviklog.1" | manual_options > "$work/manual"
compare "kelviklog's options"

"$kelvikctl" --help > "$work/help" || failed=1
help_options < "$work/help" > "$work/program"
grep '^\.It Fl' "$man/kelvikctl.1" | manual_options > "$work/manual"
compare "kelvikctl's options"

sed -n '/^Subcommands:/,/^$/s/^  \([a-z][a-z]*\).*/\1/p' "$work/help" > "$work/commands"
cp "$work/commands" "$work/program"
sed -n 's/^\.It Ic \([a-z]*\).*/\1/p' "$man/kelvikctl.1" > "$work/manual"
compare "kelvikctl's commands"
"$kelvikctl" --help | help_options > "$work/common"
while read -r command; do
  # "none" keeps a list from being empty.
  { echo none; "$kelvikctl" "$command" --help | help_options | grep -vxF -f "$work/common"; } \
    > "$work/program"
  { echo none; grep "^\.It Ic $command\( \|\$\)" "$man/kelvikctl.1" | manual_options; } > "$work/manual"
  compare "the options of kelvikctl $command"
done < "$work/commands"

cat "$source/inc/Kelvik.h" "$source/inc/KelvikExtra.h" |
  sed -n 's/^KELVIK_API int \([A-Za-z0-9_]*\)(.*/\1/p' > "$work/program"
sed -n 's/^\.Fo \(.*\)/\1/p' "$man/kelvik.3" > "$work/manual"
compare "the synopsis of kelvik(3)"
# One description serves both families.
grep -v '^Kelvik_' "$work/program" > "$work/plain"
mv "$work/plain" "$work/program"
grep '^\.It Fn' "$man/kelvik.3" | awk '{ for (i = 1; i < NF; i++) if ($i == "Fn") print $(i + 1) }' \
  > "$work/manual"
compare "the functions of kelvik(3)"

sed -n '/^## Section `Global`/,/^## Section `fileName`/s/^| \(`.*\)/\1/p' "$source/docs/configuration.md" |
  sed 's/ |.*//' | tr -d '`' | tr ' ' '\n' > "$work/program"
grep '^\.It Cm' "$man/kelvik.ini.5" |
  awk '{ for (i = 1; i < NF; i++) if ($i == "Cm") print $(i + 1) }' | grep -v '^fileName_' \
  > "$work/manual"
compare "the keys of kelvik.ini(5)"

if ! command -v mandoc > /dev/null 2>&1; then
  echo "SKIPPED: mandoc is not installed; the manuals were not linted"
  [ -z "$failed" ] && exit 77
  exit 1
fi
mandoc -Tlint -W warning "$man"/* || failed=1
[ -z "$failed" ]
