#!/bin/sh
# Holds tests/host-only.txt against the tests that carry the label host-only.
#   host-only-test.sh LIST CTEST BUILD-FOLDER
set -u
list=$1
ctest=$2
build=$3

work=$(mktemp -d) || exit 1
trap 'rm -rf "$work"' EXIT

grep -v '^#' "$list" | grep -v '^[[:space:]]*$' > "$work/entries"
if grep -n -v '^[A-Za-z]*\.[A-Za-z0-9_.-]*: [^ ].*' "$work/entries"; then
  echo "host-only.txt: the lines above are not 'name: reason'"
  exit 1
fi
sed 's/: .*//' "$work/entries" | sort > "$work/listed"

"$ctest" --test-dir "$build" -N -L '^host-only$' > "$work/ctest" || exit 1
grep -q '^Total Tests: ' "$work/ctest" || { echo "ctest listed nothing"; exit 1; }
sed -n 's/ (Disabled)$//; s/^ *Test *#[0-9]*: //p' "$work/ctest" | sort > "$work/labelled"

if ! diff -u "$work/listed" "$work/labelled"; then
  echo "tests/host-only.txt (-) and the label host-only (+) differ"
  exit 1
fi
