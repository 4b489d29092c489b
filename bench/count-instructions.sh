#!/bin/sh
# Instructions of one record by callgrind: the difference of two runs, of N and of 2N records.
#   count-instructions.sh PROGRAM [ROW ...]     without rows: all that the program has
# Prints a line "ROW COUNT" for each. Of both threads, the caller's and the writer's.
set -u
program=$1
shift
records=20000
work=$(mktemp -d) || exit 1
trap 'rm -rf "$work"' EXIT
trap 'exit 1' HUP INT TERM

# total ROW RECORDS
total() {
  valgrind --tool=callgrind --callgrind-out-file="$work/counts" "$program" "$1" "$2" \
    > "$work/stdout" 2> "$work/stderr" || { cat "$work/stderr" >&2; return 1; }
  awk '/^(summary|totals):/ { print $2; found = 1; exit } END { exit !found }' "$work/counts"
}

# shellcheck disable=SC2046
[ $# -gt 0 ] || set -- $("$program")
for row in "$@"; do
  one=$(total "$row" $records) && two=$(total "$row" $((2 * records))) || exit 1
  awk -v row="$row" -v one="$one" -v two="$two" -v n=$records \
    'BEGIN { printf "%s %.1f\n", row, (two - one) / n }'
done
