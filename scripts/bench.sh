#!/bin/sh
# Builds the benchmarks with the release flags, runs every row beside the peers that are installed,
# and writes the table and the chart of docs/benchmarks.md.
#   sh scripts/bench.sh           all rows, about ten minutes on two cores; the quieter the better
#   KELVIK_BENCH_ROUNDS           rounds of the timed rows (7); the table has their medians
#   KELVIK_BENCH_RECORDS          records of the end-to-end rows (5000000)
#   KELVIK_BENCH_LINES            lines of the pipe rows (2000000)
#   KELVIK_KEEP                   set: build on in build/bench
#   TMPDIR                        where log files are written (/tmp): 1 GB
# What the programs print stands in build/bench/results, all figures in figures.tsv there.
set -u
export LC_ALL=C
cd "$(dirname "$0")/.." || exit 1
. scripts/lib.sh
rounds=${KELVIK_BENCH_ROUNDS:-7}
records=${KELVIK_BENCH_RECORDS:-5000000}
lines=${KELVIK_BENCH_LINES:-2000000}

# shellcheck disable=SC2086
need_packages $kelvik_build_packages $kelvik_bench_packages || exit 1
# Without a peer its rows are missing; the build, or the row, names it.
# shellcheck disable=SC2086
need_packages $kelvik_peer_packages
configure_and_build bench || exit 1
grep 'bench:' build/bench/configure.log

programs=build/bench/bench
results=build/bench/results
rm -rf "$results"
mkdir -p "$results"
failed=0

# run NAME COMMAND...: adds what the command prints to the results of NAME.
run() {
  name=$1
  shift
  if ! "$@" >> "$results/$name.txt" 2>> "$results/$name.err" < /dev/null; then
    tail -n 5 "$results/$name.err"
    echo "FAILED: $*"
    failed=$((failed + 1))
  fi
}

say "instructions"
run instructions sh bench/count-instructions.sh $programs/bench_CountInstructions
cat $results/instructions.txt

say "time, $rounds rounds"
for round in $(seq "$rounds"); do
  while read -r program; do
    run "$(basename "$program")" "$program" --benchmark_format=csv --benchmark_min_time=0.05
  done < build/bench/benchmarks.txt
  # The worst of many calls differs from run to run more than any other figure.
  for who in kelvik spdlog parts kelvik spdlog parts kelvik spdlog parts; do
    run tail $programs/bench_Tail $who 200000
  done
  run tail $programs/bench_Tail kelvik-index 20000  # each rotation waits for the disk
done

say "end to end, memory, size"
for round in 1 2 3 4 5; do
  run end-to-end $programs/bench_EndToEnd kelvik "$records"
  run end-to-end $programs/bench_EndToEnd spdlog "$records"
done
for round in 1 2 3 4 5 6 7; do
  run memory $programs/bench_Memory  # where the libraries are mapped moves it by some pages
done

# stripped_size STRIP LIBRARY WHO
stripped_size() {
  "$1" -o "$results/stripped" "$2" &&
    printf 'stripped KiB\t%s\t%s\n' "$3" "$(wc -c < "$results/stripped" | awk '{ printf "%.1f", $1 / 1024 }')" \
      >> "$results/size.txt"
  rm -f "$results/stripped"
}
stripped_size strip build/bench/src/libkelvik.so x86-64
# shellcheck disable=SC2086,SC2154
if need_packages $kelvik_mipsel_packages; then
  mipsel=build/bench/mipsel
  if cmake --preset mipsel -B $mipsel -DKELVIK_BUILD_TESTS=OFF -DKELVIK_BUILD_TOOLS=OFF \
    -DKELVIK_BUILD_EXAMPLES=OFF > $results/mipsel.log 2>&1 &&
    cmake --build $mipsel --target kelvik >> $results/mipsel.log 2>&1; then
    stripped_size mipsel-linux-gnu-strip $mipsel/src/libkelvik.so mipsel
  else
    echo "FAILED: the build for mipsel, see $results/mipsel.log"
    failed=$((failed + 1))
  fi
fi

say "pipe"
for round in 1 2 3; do
  run pipe env KELVIKLOG="$PWD/build/bench/tools/kelviklog/kelviklog" sh scripts/bench-kelviklog.sh "$lines"
done
cat $results/pipe.txt

# Reports go to standard error, since standard output may be what is measured.
cat $results/*.txt $results/*.err | awk -f bench/figures.awk > $results/figures.tsv
awk -f bench/table.awk $results/figures.tsv > $results/table.md || failed=$((failed + 1))
awk -v figures=1 -f bench/table.awk $results/figures.tsv > $results/medians.tsv
gnuplot -e "medians='$results/medians.tsv'; chart='docs/benchmarks.svg'" bench/chart.gp ||
  failed=$((failed + 1))

# The page's table is replaced; what people wrote around it stays.
{
  echo
  echo "$(uname -m), $(sed -n 's/^model name[^:]*: //p' /proc/cpuinfo | head -n 1), $kelvik_cores cores;" \
    "$(sed -n 's/^PRETTY_NAME="\(.*\)"/\1/p' /etc/os-release), $(c++ --version | head -n 1);" \
    "load $(cut -d ' ' -f 1 /proc/loadavg) at the end; $(date -u +%F)."
  echo
  cat $results/table.md
  echo
} > $results/page.md
awk -v page="$results/page.md" '
  /<!-- end of figures -->/ { skipping = 0 }
  !skipping { print }
  /<!-- figures -->/ { while ((getline line < page) > 0) print line; skipping = 1 }
' docs/benchmarks.md > $results/benchmarks.md && cp $results/benchmarks.md docs/benchmarks.md

say "docs/benchmarks.md, docs/benchmarks.svg"
cat $results/page.md
echo "$failed benchmark runs failed"
[ "$failed" = 0 ]
