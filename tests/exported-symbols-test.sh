#!/bin/sh
# Holds what libkelvik.so exports against the stored list: each C function of the list and no other,
# and of C++ only members and run-time type data of the listed classes.
#   exported-symbols-test.sh LIST NM LIBRARY
set -u
list=$1
nm=$2
library=$3

work=$(mktemp -d) || exit 1
trap 'rm -rf "$work"' EXIT
failed=0

grep -v '^#' "$list" | grep -v '^[[:space:]]*$' > "$work/entries"
grep -v '::' "$work/entries" | sort > "$work/listed"
grep '::' "$work/entries" | sort > "$work/classes"

"$nm" -D --defined-only "$library" > "$work/nm" || exit 1
# What the linker and the sanitizers add of their own (types A and absolute marks included).
awk '{ print $NF }' "$work/nm" | sed 's/@.*//' |
  grep -v -E '^(_init|_fini|_end|_edata|_etext|_fbss|_fdata|_ftext|_gp|_gp_disp|__bss_start)$' |
  grep -v -E '^(__bss_start__|__end__|_bss_end__|__rld_map|_DYNAMIC_LINKING|__RLD_MAP)$' |
  grep -v -E '^__(asan|odr_asan|tsan|ubsan|lsan|sanitizer|gcov|llvm|sancov)' |
  sort -u > "$work/all"
# With clang's -fsanitize=function each function's type has data of its own.
if "$nm" -D --undefined-only "$library" | grep -q '__ubsan_handle_function_type_mismatch'; then
  grep -v '^_ZT[IS]F' "$work/all" > "$work/exported"
else
  cp "$work/all" "$work/exported"
fi
[ -s "$work/exported" ] || { echo "$library exports nothing"; exit 1; }

grep -v '^_Z' "$work/exported" > "$work/plain"
if ! diff -u "$work/listed" "$work/plain"; then
  echo "C names: listed in exported-symbols.txt (-) and exported (+) differ"
  failed=1
fi

# A mangled name carries its class as N, qualifiers and the lengths: _ZN6Kelvik7CGlobal...
grep '^_Z' "$work/exported" > "$work/cplusplus"
: > "$work/patterns"
while read -r class; do
  name=${class#Kelvik::}
  part="6Kelvik${#name}$name"
  echo "^_ZN[KVRO]*$part" >> "$work/patterns"
  echo "^_ZT[ISV]N[KVRO]*${part}E$" >> "$work/patterns"
  echo "^_ZT[ISV]N[KVRO]*${part}[0-9].*E$" >> "$work/patterns"
  echo "^_ZThn[0-9]*_N[KVRO]*$part" >> "$work/patterns"
  if ! grep -q "^_ZN[KVRO]*$part" "$work/cplusplus"; then
    echo "$class is on the list and exports no member"
    failed=1
  fi
done < "$work/classes"
if grep -v -f "$work/patterns" "$work/cplusplus" > "$work/foreign"; then
  echo "exported, but no member of a listed class:"
  cat "$work/foreign"
  failed=1
fi
exit $failed
