#!/bin/sh
# Programs of strangers are built with what this build tree installs, and run: C99 by pkg-config, C++17
# by find_package, shared and static, from an installed copy, from a copy that was moved, from the build
# tree, and with the sources in a folder.
#   consumer-test.sh CMAKE BUILD-FOLDER SOURCE-FOLDER C-COMPILER C++-COMPILER VERSION [COMPILER-LAUNCHER]
set -u
cmake=$1
build=$2
source=$3
export CC="$4" CXX="$5"
version=$6
user=$source/tests/packaging/consumer
unset DESTDIR PKG_CONFIG_PATH PKG_CONFIG_LIBDIR LD_LIBRARY_PATH CMAKE_PREFIX_PATH Kelvik_DIR

work=$(mktemp -d) || exit 1
trap 'rm -rf "$work"' EXIT
trap 'exit 1' HUP INT TERM

fail() {
  echo "FAILED: $*"
  [ ! -s "$work/out" ] || cat "$work/out"
  exit 1
}

# Runs a command that must succeed, and shows what it said only when it does not.
must() {
  "$@" > "$work/out" 2>&1 < /dev/null || fail "$*"
}

# A program of a stranger must log its record into a file of the folder that it is given.
must_log() {
  mkdir "$work/logs" || exit 1
  must "$@" "$work/logs/"
  cat "$work"/logs/*.log > "$work/text" || fail "$* left no log file"
  grep -q '\[user\]\[c[p]*\] .* *record' "$work/text" || fail "$* left no record"
  rm -rf "$work/logs"
}

# What a prefix must hold.
check_copy() {
  libraries=$(dirname "$(find "$1" -name libkelvik.a)")
  for file in "$1/include/kelvik/Kelvik.h" "$libraries/libkelvik.so.${version%%.*}" \
    "$libraries/libkelvik.so" "$libraries/cmake/Kelvik/KelvikConfig.cmake" \
    "$libraries/pkgconfig/kelvik.pc" "$1/bin/kelvikctl" "$1/bin/kelviklog" \
    "$1/share/man/man1/kelvikctl.1" "$1/share/man/man1/kelviklog.1" "$1/share/man/man3/kelvik.3" \
    "$1/share/man/man5/kelvik.ini.5" "$1/share/bash-completion/completions/kelvikctl" \
    "$1/share/bash-completion/completions/kelviklog" "$1/share/doc/kelvik/examples/sysmon.c" \
    "$1/share/doc/kelvik/examples/Makefile" "$1/share/kelvik/lnav/kelvik.json"; do
    [ -e "$file" ] || fail "$file was not installed"
  done
  for header in "$source"/inc/*; do
    cmp -s "$header" "$1/include/kelvik/$(basename "$header")" || fail "$header was not installed"
  done
  # Nothing in it may know where it was made, but for a debug build's lines that a debugger reads.
  bare=$1
  if grep -q '^CMAKE_BUILD_TYPE:[A-Z]*=\(Debug\|RelWithDebInfo\)$' "$build/CMakeCache.txt"; then
    bare=$work/bare
    cp -a "$1" "$bare" || exit 1
    find "$bare" -type f \( -name 'libkelvik.*' -o -path '*/bin/*' \) > "$work/binaries"
    while read -r file; do must strip --strip-debug "$file"; done < "$work/binaries"
  fi
  if grep -rlF -e "$build" -e "$work" "$bare" > "$work/out"; then fail "these files name a folder"; fi
  rm -rf "$work/bare"
}

# by_pkg_config FOLDER-OF-KELVIK.PC FOLDER-OF-LIBRARIES
by_pkg_config() {
  export PKG_CONFIG_PATH="$1"
  must pkg-config --exact-version "$version" kelvik
  # shellcheck disable=SC2046
  must $CC -std=c99 -Wall -Wextra -Wpedantic -Werror $(pkg-config --cflags kelvik) -o "$work/user" \
    "$user/user.c" $(pkg-config --libs kelvik)
  LD_LIBRARY_PATH=$2 must_log "$work/user"
  # shellcheck disable=SC2046
  must $CC -std=c99 -static $(pkg-config --static --cflags kelvik) -o "$work/user" "$user/user.c" \
    $(pkg-config --static --libs kelvik)
  must_log "$work/user"
  unset PKG_CONFIG_PATH
}

# by_find_package PREFIX-OR-BUILD-FOLDER PROGRAM...
by_find_package() {
  rm -rf "$work/user-build"
  must "$cmake" -S "$user" -B "$work/user-build" -DCMAKE_PREFIX_PATH="$1" -DKelvik_ROOT="$1"
  grep -q "^Kelvik_DIR:PATH=$1" "$work/user-build/CMakeCache.txt" || fail "another Kelvik was found"
  shift
  must "$cmake" --build "$work/user-build" -j 2 --target "$@"
  for program in "$@"; do
    must_log "$work/user-build/$program"
  done
}

echo "An installed copy, through DESTDIR to the folder it was made for"
must env DESTDIR="$work/root" "$cmake" --install "$build" --prefix /opt/kelvik
check_copy "$work/root/opt/kelvik"

echo "An installed copy, moved"
must "$cmake" --install "$build" --prefix "$work/prefix"
mv "$work/prefix" "$work/moved" || exit 1
check_copy "$work/moved"
must "$work/moved/bin/kelvikctl" --version
must "$work/moved/bin/kelviklog" --version
grep -qx "kelviklog $version" "$work/out" || fail "kelviklog is of another version"
by_find_package "$work/moved" user_cpp user_static user_c_static
if command -v pkg-config > /dev/null 2>&1; then
  by_pkg_config "$libraries/pkgconfig" "$libraries"
  must env PKG_CONFIG_PATH="$libraries/pkgconfig" make -C "$work/moved/share/doc/kelvik/examples"
  by_pkg_config "$build" "$build/src"
else
  echo "SKIPPED: pkg-config is not installed; kelvik.pc was not tried"
  without_pkg_config=1
fi

echo "The build tree"
by_find_package "$build" user_cpp user_c_static

echo "The sources in a folder of another project, which installs them with its own program"
must "$cmake" -S "$user/whole" -B "$work/whole" -DKELVIK_FOLDER="$source" -DKELVIK_INSTALL=ON \
  -DCMAKE_CXX_COMPILER_LAUNCHER="${7:-}"
must "$cmake" --build "$work/whole" -j 2
must_log "$work/whole/user_c"
must_log "$work/whole/user_static"
must "$cmake" --install "$work/whole" --prefix "$work/with-it"
[ -e "$work/with-it/include/kelvik/Kelvik.h" ] || fail "the library was not installed"
# The program was linked with the version that the library says it has.
grep -q "V$version\\." "$source/src/GlobalConfig.cpp" || fail "the library says another version"
[ -z "${without_pkg_config:-}" ] || exit 77
