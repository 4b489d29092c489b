#!/bin/sh
# Compares the instructions of macros and calls, counted by callgrind.
#   macros-cost-test.sh PROGRAM COUNT-INSTRUCTIONS.SH
# Exit code 77 without valgrind.
set -u
if ! command -v valgrind > /dev/null 2>&1; then
  echo "[  SKIPPED ] integration.MacrosCost (package valgrind is missing)"
  exit 77
fi
counts=$(sh "$2" "$1") || exit 1
echo "$counts" | awk '
  { count[$1] = $2; ++rows; printf "%-12s %8.1f\n", $1, $2 }
  function holds(what, condition) {
    if (condition) return
    print "not so: " what
    ++bad
  }
  END {
    holds("nine rows were counted", rows == 9)
    for (row in count) holds(row " was counted", count[row] > 5)
    # The question is a part of what the call does; its arguments need not be put on the stack.
    holds("a macro below its level costs as much as the call", count["macro"] <= count["call"] + 5)
    holds("with the location as well", count["macro-at"] <= count["call"] + 5)
    holds("the count of every nth is not touched", count["macro-every"] <= count["macro"] + 10)
    # A view is copied: three bytes.
    holds("a view costs little more", count["macro-view"] <= count["macro"] + 40)
    # The dump is some 200 instructions.
    holds("an argument is not worked out", count["macro-dump"] <= count["macro"] + 10)
    holds("the call works it out", count["call-dump"] >= count["call"] + 100)
    holds("a record that is made costs the call and the question",
          count["made"] <= count["made-call"] + count["macro"] + 10)
    exit bad != 0
  }'
