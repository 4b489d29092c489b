#!/bin/sh
# Static checks of the library and the tools: clang-tidy 14 with the list in .clang-tidy, and cppcheck.
#   sh scripts/lint.sh [FILE...]       these sources, or all of src/ and tools/
# Nothing is suppressed on the command line; a line that must stand says why where it stands.
set -u
cd "$(dirname "$0")/.." || exit 1
. scripts/lib.sh

# shellcheck disable=SC2086
need_packages $kelvik_build_packages $kelvik_test_packages $kelvik_clang_packages \
  $kelvik_lint_packages || exit 1

build=${KELVIK_LINT_BUILD:-build/lint}
mkdir -p "$build"
if ! cmake --preset clang -B "$build" -DCMAKE_EXPORT_COMPILE_COMMANDS=ON -DKELVIK_BUILD_TESTS=OFF \
  -DKELVIK_BUILD_BENCH=OFF > "$build/configure.log" 2>&1; then
  cat "$build/configure.log"
  exit 1
fi
# What the build makes itself must be there before the sources that include it are read.
[ $# -gt 0 ] || set -- $(git ls-files 'src/*.cpp' 'tools/*.cpp')
failed=0

say "clang-tidy: $# files"
printf '%s\n' "$@" |
  nice xargs -P "$kelvik_cores" -I{} clang-tidy-14 -p "$build" --quiet {} > "$build/tidy.log" 2>&1 ||
  failed=1
if [ "$failed" = 1 ]; then
  # A header's finding comes once for each source that includes it.
  grep -E '(warning|error):' "$build/tidy.log" | sort -u
  echo "all of it: $build/tidy.log"
fi

say "cppcheck"
# The checks that speak of bugs; "style" contradicts the house's own in more than it finds.
if ! nice cppcheck --quiet --std=c++17 --language=c++ --enable=warning,performance,portability \
  --inline-suppr --error-exitcode=1 --platform=unix64 -j "$kelvik_cores" \
  -I inc -I src -I tools/kelvikctl -I tools/kelviklog "$@" 2> "$build/cppcheck.log"; then
  cat "$build/cppcheck.log"
  failed=1
fi
[ "$failed" = 0 ] && echo "nothing found"
exit "$failed"
