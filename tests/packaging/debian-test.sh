#!/bin/sh
# The Debian packages of this build tree: complete, clean for lintian, and at work when unpacked.
#   debian-test.sh CPACK BUILD-FOLDER
# Exit code 77: something to test them with is missing.
set -u
cpack=$1
build=$2
for tool in dpkg-deb dpkg-shlibdeps file; do
  command -v $tool > /dev/null 2>&1 && continue
  echo "SKIPPED: $tool is not installed; the packages were not made"
  exit 77
done
unset LD_LIBRARY_PATH

work=$(mktemp -d) || exit 1
trap 'rm -rf "$work"' EXIT
trap 'exit 1' HUP INT TERM
fail() {
  echo "FAILED: $*"
  exit 1
}

cd "$build" && "$cpack" -G DEB -B "$work/made" > "$work/out" 2>&1 ||
  { cat "$work/out"; fail "cpack"; }
for name in libkelvik1 libkelvik-dev kelvik-tools; do
  package=$(ls "$work/made/$name"_*.deb) || fail "there is no package $name"
  dpkg-deb -x "$package" "$work/root" || fail "$name does not unpack"
  dpkg-deb -f "$package" Depends > "$work/depends"
  case $name in
    libkelvik1) grep -q 'libc6 (>=.*libstdc++6' "$work/depends" ;;
    *) grep -q 'libkelvik1 (= [0-9.]*-[0-9])' "$work/depends" ;;
  esac || { cat "$work/depends"; fail "$name does not depend on what it needs"; }
  for document in copyright changelog.gz changelog.Debian.gz; do
    [ -s "$work/root/usr/share/doc/$name/$document" ] || fail "$name has no $document"
  done
done
for page in man1/kelviklog.1.gz man1/kelvikctl.1.gz man3/kelvik.3.gz man5/kelvik.ini.5.gz; do
  [ -s "$work/root/usr/share/man/$page" ] || fail "$page is in no package"
done
libraries=$(dirname "$(find "$work/root/usr/lib" -name libkelvik.so.1)")
dpkg-deb --ctrl-tarfile "$work"/made/libkelvik1_*.deb | tar -xf - -C "$work" ./shlibs ./triggers ||
  fail "libkelvik1 lacks shlibs or triggers"
grep -q '^libkelvik 1 libkelvik1' "$work/shlibs" || fail "shlibs does not name libkelvik1"

# Only what was unpacked is used, and no hint in the program leads elsewhere.
echo "a line" | LD_LIBRARY_PATH=$libraries "$work/root/usr/bin/kelviklog" -m packed > "$work/out" &&
  grep -q '\[packed\] a line' "$work/out" || fail "kelviklog does not run"
"$work/root/usr/bin/kelvikctl" --version > /dev/null || fail "kelvikctl does not run"
LD_LIBRARY_PATH=$libraries ldd "$work/root/usr/bin/kelviklog" > "$work/out"
grep -q "$libraries/libkelvik.so.1" "$work/out" || fail "kelviklog uses another library"

if ! command -v lintian > /dev/null 2>&1; then
  echo "SKIPPED: lintian is not installed; the packages were not checked by it"
  exit 77
fi
lintian --allow-root --fail-on error "$work"/made/*.deb || fail "lintian"
