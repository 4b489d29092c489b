#!/bin/sh
# Holds what programs have built in about libkelvik.so against the stored file: sizes, offsets and
# virtual slots of the exported classes and records, and each exported name.
#   abi-test.sh STORED NM LIBRARY [EMULATOR...] PROGRAM
# PROGRAM prints the layout. With KELVIK_RENEW_ABI set the stored file is written anew.
set -u
stored=$1
nm=$2
library=$3
shift 3

work=$(mktemp -d) || exit 1
trap 'rm -rf "$work"' EXIT

"$@" > "$work/layout" || { echo "the layout could not be printed"; exit 1; }
pointer=$(sed -n 's/^size void\* \([0-9]*\) .*/\1/p' "$work/layout")
[ -n "$pointer" ] || { echo "no size of a pointer in the layout"; exit 1; }

# A table of virtual functions begins with an offset and a pointer to the type's data.
# Where every virtual function is inline (CGuard) or pure (IExecute), each program has tables of its own
# and it is the compiler's choice whether the library has some, too.
"$nm" -D -S -C --defined-only -t d "$library" > "$work/all" || exit 1
grep -v -E '(vtable|typeinfo|typeinfo name) for Kelvik::(CGuard|CThread::IExecute)$' "$work/all" > "$work/nm"
sed -n 's/^[0-9]* \([0-9]*\) [A-Z] vtable for \(Kelvik::.*\)$/\1 \2/p' "$work/nm" | sort -k 2 |
  while read -r bytes class; do
    bytes=${bytes#"${bytes%%[!0]*}"}
    echo "slots $class $((bytes / pointer - 2))"
  done > "$work/slots"
[ -s "$work/slots" ] || { echo "$library has no table of virtual functions"; exit 1; }

# Copies of inline functions are weak; whether there is one is the compiler's choice.
sed -n 's/^[0-9]* \([0-9]* \)\{0,1\}[TDRBV] \(.*\)$/export \2/p' "$work/nm" |
  grep -E '^export (typeinfo.* |vtable for |non-virtual thunk to )?(Kelvik|K[A-Z]|[A-Za-z]*$)' |
  grep -v -E '^export (_init|_fini|_end|_edata|_etext|_fbss|_fdata|_ftext)$' |
  LC_ALL=C sort -u > "$work/exports"
grep -q '^export KLog$' "$work/exports" || { echo "$library exports no KLog"; exit 1; }

{
  echo "# What programs rely on; see abi-test.sh, which also writes this file."
  cat "$work/layout" "$work/slots" "$work/exports"
} > "$work/now"

if [ -n "${KELVIK_RENEW_ABI:-}" ]; then
  cp "$work/now" "$stored" && echo "$stored is written anew: look at the difference with git diff"
  exit
fi
if ! diff -u "$stored" "$work/now"; then
  echo "Stored (-) and present (+) interface differ. A program that was built before may break; then the"
  echo "soname has to change. Members appended to a class that only the library makes, and new functions,"
  echo "break nothing. If it is meant:  KELVIK_RENEW_ABI=1 ctest --test-dir BUILD-FOLDER -R script.Abi"
  echo "in the build for x86_64 and in the one for mipsel."
  exit 1
fi
