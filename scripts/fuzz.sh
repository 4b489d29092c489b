#!/bin/sh
# Runs every fuzz target for so many minutes: sh scripts/fuzz.sh MINUTES [TARGET...]
# A found input stands in build/fuzz/found; mend the fault and keep the input in tests/fuzz/seeds.
set -u
cd "$(dirname "$0")/.." || exit 1
. scripts/lib.sh

minutes=${1:-}
case $minutes in
  '' | *[!0-9]* | 0)
    echo "usage: sh scripts/fuzz.sh MINUTES [TARGET...]"
    exit 64
    ;;
esac
shift

# shellcheck disable=SC2086
need_packages $kelvik_build_packages $kelvik_clang_packages || exit 1
KELVIK_KEEP=1 configure_and_build fuzz || exit 1
if [ $# -gt 0 ]; then
  cp build/fuzz/fuzzers.txt build/fuzz/fuzzers.all
  for target in "$@"; do
    grep "/fuzz_${target#fuzz_} " build/fuzz/fuzzers.all || { echo "no target $target" >&2; exit 64; }
  done > build/fuzz/fuzzers.txt
fi
run_fuzzers $((minutes * 60))
[ ! -f build/fuzz/fuzzers.all ] || mv build/fuzz/fuzzers.all build/fuzz/fuzzers.txt
echo "$fuzz_passed passed, $fuzz_failed failed"
[ "$fuzz_failed" = 0 ] && [ "$fuzz_passed" -gt 0 ]
