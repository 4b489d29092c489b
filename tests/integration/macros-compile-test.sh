#!/bin/sh
# What the compiler makes of the macros: no warning about right calls, one about a wrong format, and
# nothing in the object code of calls below the minimum level.
#   macros-compile-test.sh INCLUDE-FOLDER C-COMPILER CXX-COMPILER [C-COMPILER CXX-COMPILER]
# A compiler of the second pair that is not installed is left out, and said to be.
set -u
include=$1
shift
work=$(mktemp -d) || exit 1
trap 'rm -rf "$work"' EXIT
failed=0
checks=0
where=-isystem
levels='DEBUG INFO WARNING ERROR FATAL'
forms='PLAIN IF EVERY_N EVERY_MS AT AT_IF AT_EVERY_N AT_EVERY_MS'
strict='-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wformat=2 -Werror'

fail() {
  echo "$1"
  shift
  [ $# -eq 0 ] || cat "$@"
  failed=1
}

# call LEVEL FORM MODULE FORMAT-AND-ARGUMENTS: one statement on a line.
call() {
  case $2 in
    PLAIN) printf '  KELVIK_%s(%s, "title", %s);\n' "$1" "$3" "$4" ;;
    AT) printf '  KELVIK_%s_AT(%s, "title", %s);\n' "$1" "$3" "$4" ;;
    *IF) printf '  KELVIK_%s_%s(Number("lead") > 1, %s, "title", %s);\n' "$1" "$2" "$3" "$4" ;;
    *) printf '  KELVIK_%s_%s(Number("lead"), %s, "title", %s);\n' "$1" "$2" "$3" "$4" ;;
  esac
}

# Statements become a source file.
source_of() {
  printf '#include HEADER\n#ifdef __cplusplus\n#include <string>\nstd::string Make();\n#endif\n'
  printf 'int Number(const char* text);\nvoid Place(int n, const char* m);\n'
  printf 'void Place(int n, const char* m) {\n  (void)n;\n  (void)m;\n#ifndef EMPTY\n'
  cat
  printf '#endif\n}\n'
}

# compile COMPILER... : standard, options, source and output are among the words. The headers are
# found where installed ones are, among those of the system.
compile() {
  checks=$((checks + 1))
  "$@" "$where" "$include" > "$work/warnings" 2>&1
}

# every_call MODULE: each macro once, under an if and an else without braces, too.
every_call() {
  for level in $levels; do
    for form in $forms; do
      call "$level" "$form" "$1" '"secret\n"'
      call "$level" "$form" "$1" '"secret %d %s\n", Number("secret argument"), "secret text"'
    done
    printf '  if (n == 1)\n  '
    call "$level" PLAIN "$1" '"secret\n"'
    printf '  else\n  '
    call "$level" EVERY_N "$1" '"secret\n"'
  done
}

# A warning on every line with a wrong call, however the level stands to the minimum.
# wrong_formats COMPILER-WORDS SUFFIX HEADER
wrong_formats() {
  for form in $forms; do
    for text in '"%d\n", "wrong"' '"%s\n", 1 /* wrong */' '"wrong %d\n"'; do
      call INFO "$form" m "$text"
    done
  done | source_of > "$work/wrong.$2"
  sed -n '/KELVIK_INFO.*wrong/=' "$work/wrong.$2" > "$work/expected"
  [ "$(wc -l < "$work/expected")" -eq 24 ] || fail "the wrong calls are not as they should be"
  for minimum in 1 6; do
    # shellcheck disable=SC2086
    compile $1 -Wformat -fsyntax-only -DHEADER="\"$3\"" -DKELVIK_MIN_LEVEL=$minimum \
      "$work/wrong.$2" || fail "$1 $3" "$work/warnings"
    sed -n "s/^[^ ]*wrong.$2:\([0-9]*\):.*warning.*-Wformat.*/\1/p" "$work/warnings" | sort -nu \
      > "$work/warned"
    diff "$work/expected" "$work/warned" > "$work/difference" ||
      fail "$1 $3, minimum $minimum: lines of wrong calls (<) and of warnings (>)" \
        "$work/difference" "$work/warnings"
  done
}

# removed COMPILER-WORDS SUFFIX HEADER
removed() {
  for option in -O0 -O2; do
    for variant in CALLS EMPTY; do
      # shellcheck disable=SC2086
      compile $1 $option -S -DHEADER="\"$3\"" -D$variant -DKELVIK_MIN_LEVEL=6 "$work/all.$2" \
        -o "$work/$variant.s" || fail "$1 $option" "$work/warnings"
    done
    # Without optimisation a statement may leave a jump to the next one, but nothing of the calls.
    grep -q Place "$work/CALLS.s" || fail "$1 $3 $option: no function"
    for variant in CALLS EMPTY; do
      grep -i -E 'secret|title|lead|Number|Make|kelvik' "$work/$variant.s" > "$work/$variant.traces"
    done
    diff "$work/EMPTY.traces" "$work/CALLS.traces" > "$work/difference" ||
      fail "$1 $3 $option: traces" "$work/difference"
    [ $option = -O0 ] || diff "$work/EMPTY.s" "$work/CALLS.s" > "$work/difference" ||
      fail "$1 $3: removed calls change the code" "$work/difference"
  done
}

# The search of removed() does find a call that is not removed.
# kept COMPILER-WORDS SUFFIX HEADER
kept() {
  for level in $levels; do
    call "$level" PLAIN m "\"secret $level\n\""
  done | source_of > "$work/levels.$2"
  for minimum in 1 2 3 4 5 6; do
    # shellcheck disable=SC2086
    compile $1 -O0 -S -DHEADER="\"$3\"" -DKELVIK_MIN_LEVEL=$minimum "$work/levels.$2" \
      -o "$work/levels.s" || fail "$1" "$work/warnings"
    number=0
    for level in $levels; do
      number=$((number + 1))
      found=0
      grep -q "secret $level" "$work/levels.s" && found=1
      [ $found -eq $((number >= minimum)) ] || fail "$1 $3: $level, minimum $minimum: found $found"
    done
  done
  for minimum in 0 7 eLogLevelInfo; do
    # shellcheck disable=SC2086
    ! compile $1 -fsyntax-only -DHEADER="\"$3\"" -DKELVIK_MIN_LEVEL=$minimum "$work/levels.$2" ||
      fail "$1 $3: took the minimum $minimum"
  done
}

# check COMPILER STANDARD SUFFIX HEADER
check() {
  compiler="$1 -std=$2"
  module=m
  [ "$4" != Kelvik.hpp ] || module='Make()'
  every_call "$module" | source_of > "$work/all.$3"
  # Seen as a header of the program's own, and optimised: compilers warn of more then.
  where=-I
  for minimum in 1 6; do
    # shellcheck disable=SC2086
    compile $compiler $strict -O2 -c -DHEADER="\"$4\"" -DKELVIK_MIN_LEVEL=$minimum "$work/all.$3" \
      -o "$work/all.o" || fail "$compiler $4, minimum $minimum: warned" "$work/warnings"
  done
  where=-isystem
  wrong_formats "$compiler" "$3" "$4"
  removed "$compiler" "$3" "$4"
  [ "$3" != c ] || kept "$compiler" "$3" "$4"
}

pair=0
while [ $# -ge 2 ]; do
  pair=$((pair + 1))
  if [ $pair -gt 1 ] && ! { command -v "$1" && command -v "$2"; } > /dev/null 2>&1; then
    echo "[  SKIPPED ] $1 and $2 (not installed)"
  else
    check "$1" c99 c KelvikMacros.h
    check "$2" c++17 cpp KelvikMacros.h
    check "$2" c++17 cpp Kelvik.hpp
  fi
  shift 2
done
[ $checks -gt 30 ] || fail "only $checks compilations"
echo "$checks compilations"
exit $failed
