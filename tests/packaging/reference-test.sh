#!/bin/sh
# Doxygen makes the reference of all headers without a warning, so nothing public is undescribed; and it
# would warn.
#   reference-test.sh SOURCE-FOLDER
# Exit code 77: doxygen is missing.
set -u
cd "$1" || exit 1
if ! command -v doxygen > /dev/null 2>&1; then
  echo "SKIPPED: doxygen is not installed; the reference was not made"
  exit 77
fi
work=$(mktemp -d) || exit 1
trap 'rm -rf "$work"' EXIT
trap 'exit 1' HUP INT TERM

# make_reference INPUT
make_reference() {
  {
    cat docs/Doxyfile
    echo "OUTPUT_DIRECTORY = $work/out"
    echo "INPUT = $1"
  } > "$work/Doxyfile"
  mkdir -p "$work/out"
  doxygen "$work/Doxyfile" > "$work/log" 2>&1
}

if ! make_reference inc; then
  cat "$work/log"
  exit 1
fi
# What the plain comments say has arrived, under the function's own name.
cat "$work"/out/html/Kelvik_8h.html > "$work/page" || exit 1
for text in 'Logs one formatted record' 'Does what <a' 'Any thread may call it at any time'; do
  grep -q "$text" "$work/page" || { echo "the page of Kelvik.h does not say '$text'"; exit 1; }
done

mkdir "$work/bad"
printf '// A file.\n#ifndef X_H_\n#define X_H_\n\n// Described.\nint Known(void);\n\nint Unknown(void);\n#endif\n' \
  > "$work/bad/x.h"
if make_reference "$work/bad" || ! grep -q 'Unknown.*not documented' "$work/log"; then
  cat "$work/log"
  echo "an undescribed function was not noticed"
  exit 1
fi
if grep 'Known.*not documented' "$work/log" | grep -v Unknown; then exit 1; fi
