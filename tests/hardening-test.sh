#!/bin/sh
# Holds the protection of libkelvik.so: what the loader makes read-only, no late binding, no unloading,
# no executable stack, no relocations of the code, and the checks that the compiler adds.
#   hardening-test.sh READELF NM LIBRARY BUILD-TYPE
set -u
readelf=$1
nm=$2
library=$3
type=$4

work=$(mktemp -d) || exit 1
trap 'rm -rf "$work"' EXIT
"$readelf" -lW "$library" > "$work/segments" && "$readelf" -dW "$library" > "$work/dynamic" &&
  "$nm" -D --undefined-only "$library" > "$work/imports" || exit 1
failed=0

expect() {
  if ! grep -q -E "$2" "$work/$1"; then
    echo "$library: $3 (no $2 in $1)"
    failed=1
  fi
}

expect segments 'GNU_RELRO' "tables of addresses stay writable"
expect dynamic 'BIND_NOW|Flags:.* NOW' "functions are bound late"
expect dynamic 'NODELETE' "dlclose would unmap code that threads and exit handlers run"
expect segments 'GNU_STACK.* RW +' "the stack is executable"
expect imports '__stack_chk_(fail|guard)' "no stack protector"
# The checked forms need optimisation.
[ "$type" = Debug ] || expect imports '__[a-z]*_chk' "no _FORTIFY_SOURCE"
if grep -q TEXTREL "$work/dynamic"; then
  echo "$library: the loader would have to write to the code"
  failed=1
fi
exit $failed
