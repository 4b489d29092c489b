#!/bin/sh
# What libkelvik.so can be made to do by a text is bounded by what it calls: nothing that runs a
# program or a shell, loads code, expands a pattern, or follows the environment.
#   imports-test.sh NM LIBRARY
set -u
nm=$1
library=$2

work=$(mktemp -d) || exit 1
trap 'rm -rf "$work"' EXIT

cat > "$work/forbidden" << 'END'
^exec(v|l|ve|le|vp|lp|vpe|veat)$
^f(exec)ve$
^(system|popen|posix_spawn|posix_spawnp|fork|vfork|clone)$
^(dlopen|dlmopen|dlsym)$
^(wordexp|glob|glob64|regcomp|fnmatch)$
^(getenv|secure_getenv|setenv|putenv|unsetenv)$
^(tmpnam|tempnam|mktemp|gets|strcpy|strcat|sprintf|vsprintf|scanf|sscanf|fscanf)$
^(setuid|seteuid|setresuid|setgid|chroot|ptrace|mprotect|umask|chdir|rmdir|mkdir|symlink|link)$
END

if "$nm" "$library" 2> /dev/null | grep -q gcov_; then
  echo "SKIPPED: the library calls what counts its lines"
  exit 77
fi
"$nm" -D --undefined-only "$library" > "$work/nm" || exit 1
awk '{ print $NF }' "$work/nm" | sed -e 's/@.*//' -e 's/^__isoc99_//' | sort -u > "$work/imports"
grep -q '^open' "$work/imports" || { echo "$library imports nothing that is known"; exit 1; }
if grep -E -f "$work/forbidden" "$work/imports"; then
  echo "the library must not call these"
  exit 1
fi
exit 0
