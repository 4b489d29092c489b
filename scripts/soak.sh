#!/bin/sh
# The long form of scripts/test.sh: hundreds of rounds in every long loop, minutes for every fuzz
# target. Takes hours at most, not days; docs/testing.md holds the last output.
#   sh scripts/soak.sh [STAGE...]    stages of scripts/test.sh (release asan tsan mipsel fuzz)
#   KELVIK_ROUNDS        at least 200 (200)
#   KELVIK_FUZZ_SECONDS  for each fuzz target (600)
set -u
cd "$(dirname "$0")/.." || exit 1

rounds=${KELVIK_ROUNDS:-200}
[ "$rounds" -ge 200 ] 2>/dev/null || rounds=200
[ $# -gt 0 ] || set -- release asan tsan mipsel fuzz
# Limits that fit 20 rounds must not end a run of ten times as many.
KELVIK_ROUNDS=$rounds KELVIK_FUZZ_SECONDS=${KELVIK_FUZZ_SECONDS:-600} \
  KELVIK_TIME_FACTOR=$((rounds / 5)) exec sh scripts/test.sh "$@"
