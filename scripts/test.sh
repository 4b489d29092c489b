#!/bin/sh
# Builds and runs everything that has to hold, from clean build folders.
#   sh scripts/test.sh                  all stages
#   sh scripts/test.sh release asan     some: release clang asan tsan mipsel coverage dev fuzz demo
#                                       format i686 lint asan-clang tsan-clang memcheck
# Installs what is missing with apt-get. Environment:
#   KELVIK_ROUNDS        rounds of the long loops (20; 8 under sanitizers and the emulator)
#   KELVIK_FUZZ_SECONDS  for each fuzz target (10)
#   KELVIK_KEEP          set: build on in the existing folders
#   KELVIK_TIME_FACTOR   set: instead of the presets' factor for time limits
# Exit code 0 only when nothing failed. A stage whose tools cannot be had is SKIPPED, and said so.
set -u
cd "$(dirname "$0")/.." || exit 1
. scripts/lib.sh
slow_rounds=${KELVIK_ROUNDS:-8}
export KELVIK_ROUNDS="${KELVIK_ROUNDS:-20}"
fuzz_seconds=${KELVIK_FUZZ_SECONDS:-10}
stages=${*:-format lint release asan tsan mipsel fuzz demo}

passed=0
failed=0
skipped=
summary=

skip() {
  echo "SKIPPED: stage $1 did not run: $2"
  skipped="$skipped $1"
  summary="$summary$1: SKIPPED
"
}

fail() {
  failed=$((failed + 1))
  summary="$summary$1: FAILED ($2)
"
}

# What the cases themselves passed over must not look like passed.
show_skipped_cases() {
  sed -n 's/^\[  SKIPPED \] \([A-Za-z0-9_./]*\).*/SKIPPED case in '"$1"': \1/p' \
    "build/$1/Testing/Temporary/LastTest.log" 2>/dev/null | sort -u
}

# Builds a preset and runs its tests; adds ctest's closing figures to ours.
suite() {
  set -- "$1" ${KELVIK_TIME_FACTOR:+"-DKELVIK_TIME_FACTOR=$KELVIK_TIME_FACTOR"}
  if ! configure_and_build "$@"; then
    fail "$1" "it does not build"
    return
  fi
  # Many tests wait for a timer, the disk or another process: one more than there are cores.
  ctest --preset "$1" -j "$((kelvik_cores + 1))" > "build/$1/ctest.log" 2>&1
  result=$?
  cat "build/$1/ctest.log"
  show_skipped_cases "$1"
  figures=$(sed -n 's/^[0-9]*% tests passed, \([0-9]*\) tests failed out of \([0-9]*\).*/\1 \2/p' \
    "build/$1/ctest.log")
  bad=${figures% *}
  all=${figures#* }
  if [ -z "$figures" ] || [ "$all" = 0 ] || { [ "$result" != 0 ] && [ "$bad" = 0 ]; }; then
    fail "$1" "ctest ended with $result without a test's result"
    return
  fi
  # Whole tests that skipped are among those that ctest calls passed.
  left_out=$(grep -c '^[[:space:]]*[0-9]* - .* (Skipped)$' "build/$1/ctest.log")
  passed=$((passed + all - bad - left_out))
  failed=$((failed + bad))
  summary="$summary$1: $((all - bad - left_out)) passed, $bad failed, $left_out skipped
"
}

suite_with() {
  stage=$1
  shift
  # shellcheck disable=SC2086
  if need_packages "$@"; then suite "$stage"; else skip "$stage" "packages are missing"; fi
}

# Runs a suite that takes several times as long as the release: fewer rounds, and the tests' temporary
# files in memory, unless TMPDIR says where they belong. The release stage keeps them on a disk.
slow() {
  rounds=$KELVIK_ROUNDS
  folder=$(memory_folder)
  KELVIK_ROUNDS=$slow_rounds
  if [ -n "${TMPDIR:-}" ] || [ -z "$folder" ]; then
    "$@"
  else
    TMPDIR=$folder
    export TMPDIR
    "$@"
    unset TMPDIR
  fi
  KELVIK_ROUNDS=$rounds
}

# The programs run by themselves where the kernel takes 32-bit ones.
i686() {
  # shellcheck disable=SC2086
  if ! need_packages $kelvik_i686_packages; then
    skip i686 "packages are missing"
  elif ! /usr/i686-linux-gnu/lib/ld-linux.so.2 --version > /dev/null 2>&1; then
    skip i686 "this machine runs no 32-bit programs"
  else
    suite i686
  fi
}

# The processes that a test starts and lets die are in its verdict only by what they do; their reports
# count as well.
memcheck() {
  # shellcheck disable=SC2086
  if ! need_packages $kelvik_guard_packages; then
    skip memcheck "packages are missing"
    return
  fi
  rm -f build/memcheck/ctest.log build/memcheck/Testing/Temporary/memcheck.*.log
  suite memcheck
  [ -f build/memcheck/ctest.log ] && step memcheck-reports memcheck_reports
}

memcheck_reports() {
  set -- build/memcheck/Testing/Temporary/memcheck.*.log
  [ -f "$1" ] || { echo "memcheck left no report"; return 1; }
  echo "memcheck watched $# processes"
  reports=$(grep -l KELVIK-ERROR "$@")
  case $? in
    0) ;;
    1) return 0 ;;
    *) return 1 ;;
  esac
  echo "memcheck found something:"
  for report in $reports; do
    echo "-- $report"
    head -n 60 "$report"
  done
  return 1
}

fuzz() {
  # shellcheck disable=SC2086
  if ! need_packages $kelvik_clang_packages; then
    skip fuzz "packages are missing"
  elif ! configure_and_build fuzz; then
    fail fuzz "it does not build"
  else
    run_fuzzers "$fuzz_seconds"
    passed=$((passed + fuzz_passed))
    failed=$((failed + fuzz_failed))
    summary="${summary}fuzz: $fuzz_passed passed, $fuzz_failed failed
"
  fi
}

# A step that passes or fails as a whole.
step() {
  name=$1
  shift
  if "$@"; then
    passed=$((passed + 1))
    summary="$summary$name: 1 passed, 0 failed
"
  else
    fail "$name" "exit code $?"
  fi
}

check_format() {
  git ls-files '*.h' '*.hpp' '*.c' '*.cpp' > build/format.txt &&
    xargs clang-format-14 --dry-run -Werror < build/format.txt
}

run_stage() {
  # shellcheck disable=SC2086
  case $1 in
    release)
      need_packages $kelvik_guard_packages || echo "bench.InstructionGuard will be SKIPPED"
      need_packages $kelvik_lnav_packages || echo "integration.LnavFormat will be SKIPPED"
      need_packages $kelvik_tmux_packages || echo "integration.KelvikctlTmux will be SKIPPED"
      need_packages $kelvik_packaging_packages || echo "parts of packaging.* will be SKIPPED"
      unpack_rsyslog || echo "integration.Fleet will be SKIPPED"
      suite release
      ;;
    dev) suite dev ;;
    asan | tsan) slow suite "$1" ;;
    clang) suite_with clang $kelvik_clang_packages ;;
    asan-clang | tsan-clang) slow suite_with "$1" $kelvik_clang_packages ;;
    mipsel) slow suite_with mipsel $kelvik_mipsel_packages ;;
    i686) slow i686 ;;
    memcheck) slow memcheck ;;
    coverage)
      suite_with coverage $kelvik_coverage_packages
      [ -f build/coverage/ctest.log ] &&
        step coverage-report python3 scripts/coverage.py build/coverage 97 90
      ;;
    fuzz) fuzz ;;
    demo) step demo sh scripts/demo.sh ;;
    lint)
      if need_packages $kelvik_clang_packages $kelvik_lint_packages; then
        step lint sh scripts/lint.sh
      else
        skip lint "packages are missing"
      fi
      ;;
    format)
      if [ ! -e .git ]; then
        skip format "not a git checkout"
      elif need_packages $kelvik_format_packages; then
        step format check_format
      else
        skip format "packages are missing"
      fi
      ;;
    *)
      echo "unknown stage: $1 (see the head of scripts/test.sh)"
      exit 64
      ;;
  esac
}

mkdir -p build
# shellcheck disable=SC2086
need_packages $kelvik_build_packages $kelvik_test_packages || exit 1
begin=$(date +%s)
for stage in $stages; do
  say "stage $stage"
  stage_begin=$(date +%s)
  run_stage "$stage"
  echo "-- stage $stage took $(($(date +%s) - stage_begin)) s"
done

say "all stages took $(($(date +%s) - begin)) s with KELVIK_ROUNDS=$KELVIK_ROUNDS"
printf '%s' "$summary"
[ -z "$skipped" ] || echo "SKIPPED STAGES:$skipped"
echo "$passed passed, $failed failed"
[ "$failed" = 0 ] && [ "$passed" -gt 0 ]
