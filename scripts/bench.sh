#!/bin/sh
# Builds the benchmarks with the release flags and runs them beside the peers that are installed.
#   sh scripts/bench.sh [arguments of Google Benchmark]
# Each program's output stands in build/bench/results, as text and as JSON.
set -u
cd "$(dirname "$0")/.." || exit 1
. scripts/lib.sh

# shellcheck disable=SC2086
need_packages $kelvik_build_packages $kelvik_bench_packages || exit 1
# Without a peer its rows are missing; the build names it.
# shellcheck disable=SC2086
need_packages $kelvik_peer_packages
configure_and_build bench || exit 1
grep 'bench:' build/bench/configure.log

mkdir -p build/bench/results
failed=0
count=0
while read -r program; do
  name=$(basename "$program")
  say "$name"
  "$program" --benchmark_out="build/bench/results/$name.json" --benchmark_out_format=json "$@" \
    > "build/bench/results/$name.txt" 2>&1 < /dev/null || failed=$((failed + 1))
  cat "build/bench/results/$name.txt"
  count=$((count + 1))
done < build/bench/benchmarks.txt
echo "$count benchmark programs run, $failed failed"
[ "$failed" = 0 ] && [ "$count" -gt 0 ]
