#!/bin/sh
# Holds the instructions of a record against stored bounds, as ratios to a reference loop that is
# compiled and counted in the same run, so that a slower change is found on any machine.
#   instruction-guard.sh PROGRAM BOUNDS
# A row may exceed its bound by 5 %. Exit code 77 without valgrind.
set -u
program=$1
bounds=$2
folder=$(dirname "$0")

if ! command -v valgrind > /dev/null 2>&1; then
  echo "[  SKIPPED ] bench.InstructionGuard (package valgrind is missing)"
  exit 77
fi
rows=$(sed 's/#.*//' "$bounds" | awk 'NF { print $1 }')
[ -n "$rows" ] || { echo "no bounds in $bounds"; exit 1; }
# shellcheck disable=SC2086
counts=$(sh "$folder/count-instructions.sh" "$program" reference $rows) || exit 1

echo "$counts" | awk '
  NR == FNR { sub(/#.*/, ""); if (NF) { bound[$1] = $2; ++wanted }; next }
  $1 == "reference" { reference = $2; printf "reference loop: %d instructions\n", $2; next }
  {
    ratio = $2 / reference
    verdict = "ok"
    if (!($1 in bound) || bound[$1] <= 0 || ratio > bound[$1] * 1.05) { verdict = "TOO MANY"; ++bad }
    else if (ratio < bound[$1] * 0.95) verdict = "fewer: lower the bound"
    printf "%-12s %7.0f  ratio %.3f  bound %.3f  %s\n", $1, $2, ratio, bound[$1], verdict
    ++seen
  }
  END { exit !(reference > 0 && seen == wanted && bad == 0) }' "$bounds" -
