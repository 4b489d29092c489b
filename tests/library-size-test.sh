#!/bin/sh
# Holds the size of the stripped libkelvik.so against the stored limit of its kind.
#   library-size-test.sh LIMITS KIND STRIP LIBRARY
# KIND is a name of the list; one that is not listed is only shown, and the test SKIPPED (code 77).
set -u
limits=$1
kind=$2
strip=$3
library=$4

work=$(mktemp -d) || exit 1
trap 'rm -rf "$work"' EXIT
"$strip" -o "$work/stripped" "$library" || exit 1
bytes=$(wc -c < "$work/stripped")
[ "$bytes" -gt 20000 ] || { echo "$library: $bytes bytes are no library"; exit 1; }
limit=$(sed -n "s/^$kind: *\([0-9][0-9]*\)$/\1/p" "$limits")
if [ -z "$limit" ]; then
  echo "SKIPPED: $kind has no limit in $(basename "$limits"); it has $bytes bytes"
  exit 77
fi
echo "$kind: $bytes bytes of at most $limit"
if [ "$bytes" -gt "$limit" ]; then
  echo "The library has grown past its limit. Look for what grew with"
  echo "  nm -S --size-sort -C $library | tail -50"
  echo "and raise the limit in $limits only for what is worth it."
  exit 1
fi
