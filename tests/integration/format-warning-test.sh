#!/bin/sh
# A wrong format is a compile-time warning, in C and in C++, in both families; a right one is none.
#   format-warning-test.sh INCLUDE-FOLDER C-COMPILER CXX-COMPILER
set -u
include=$1
cc=$2
cxx=$3

work=$(mktemp -d) || exit 1
trap 'rm -rf "$work"' EXIT
failed=0

# compile COMPILER-AND-STANDARD SUFFIX CALL: the warnings go to $work/warnings.
compile() {
  printf '#include "Kelvik.h"\nvoid F(void);\nvoid F(void) {\n  %s\n}\n' "$3" > "$work/call.$2"
  # shellcheck disable=SC2086
  $1 -Wformat -Werror -fsyntax-only -I"$include" "$work/call.$2" 2> "$work/warnings"
}

check() {
  if ! compile "$1" "$2" "$3"; then
    echo "$1: warned about the right call: $3"
    cat "$work/warnings"
    failed=1
  fi
  if compile "$1" "$2" "$4"; then
    echo "$1: was silent about the wrong call: $4"
    failed=1
  elif ! grep -q -e '-Werror=format' -e '-Wformat' "$work/warnings"; then
    echo "$1: refused the wrong call for another reason: $4"
    cat "$work/warnings"
    failed=1
  fi
}

for language in c cpp; do
  if [ "$language" = c ]; then
    compiler="$cc -std=c99 -pedantic"
  else
    compiler="$cxx -std=c++17 -pedantic"
  fi
  for family in '' Kelvik_; do
    check "$compiler" "$language" \
      "${family}KLog(eLogLevelError, \"net\", \"rx\", \"%d %s\", 1, \"text\");" \
      "${family}KLog(eLogLevelError, \"net\", \"rx\", \"%d %s\", \"text\", 1);"
    check "$compiler" "$language" \
      "${family}KLog(eLogLevelError, \"net\", \"rx\", \"%ld\", 1L);" \
      "${family}KLog(eLogLevelError, \"net\", \"rx\", \"%d\");"
    check "$compiler" "$language" \
      "${family}KLogV1(eLogLevelError, \"net\", \"rx\", \"a.c\", \"F\", 1, \"%s\", \"text\");" \
      "${family}KLogV1(eLogLevelError, \"net\", \"rx\", \"a.c\", \"F\", 1, \"%s\", 1);"
  done
done
exit $failed
