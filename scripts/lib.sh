# Shared by the scripts of this folder, which read it with ". scripts/lib.sh" from the project's root.
# POSIX sh.

kelvik_cores=$(getconf _NPROCESSORS_ONLN 2>/dev/null || echo 2)
export CMAKE_BUILD_PARALLEL_LEVEL="${CMAKE_BUILD_PARALLEL_LEVEL:-$kelvik_cores}"

# Debian 12's packages by what they are for.
kelvik_build_packages="cmake ninja-build g++ libc6-dev libcli11-dev"
kelvik_test_packages="libgtest-dev libgmock-dev"
kelvik_guard_packages="valgrind"
kelvik_lnav_packages="lnav"
kelvik_tmux_packages="tmux"
kelvik_packaging_packages="pkg-config make dpkg-dev file lintian mandoc doxygen"
kelvik_mipsel_packages="g++-mipsel-linux-gnu libc6-dev-mipsel-cross qemu-user"
kelvik_i686_packages="g++-i686-linux-gnu"
kelvik_clang_packages="clang-14 libclang-rt-14-dev"
kelvik_lint_packages="clang-tidy-14 cppcheck"
kelvik_format_packages="clang-format-14 git"
kelvik_coverage_packages="gcovr"
kelvik_bench_packages="libbenchmark-dev pkg-config valgrind gnuplot-nox"
kelvik_peer_packages="libspdlog-dev libgoogle-glog-dev liblog4cplus-dev libinih-dev libboost-dev
  daemontools runit"
# What rsyslogd links with; see unpack_rsyslog.
kelvik_fleet_packages="libestr0 libfastjson4 liblognorm5"

say() {
  printf '\n== %s\n' "$*"
}

# Prints those of the named packages that are not installed.
missing_packages() {
  for package in "$@"; do
    status=$(dpkg-query -W -f='${Status}' "$package" 2>/dev/null) || status=
    case $status in
      *' installed') ;;
      *) printf '%s ' "$package" ;;
    esac
  done
}

# Runs apt-get as root: directly, or through sudo, which asks nothing unless a person sits there.
as_root() {
  if [ "$(id -u)" = 0 ]; then
    "$@"
  elif command -v sudo >/dev/null 2>&1; then
    if [ -t 0 ]; then sudo "$@"; else sudo -n "$@"; fi
  else
    return 1
  fi
}

# Sees to it that the packages are there. Fails, after naming them, when some cannot be had.
need_packages() {
  if ! command -v dpkg-query >/dev/null 2>&1; then
    echo "Not a Debian system: these packages, or what stands for them, are needed: $*"
    return 0
  fi
  missing=$(missing_packages "$@")
  [ -z "$missing" ] && return 0
  echo "Installing: $missing"
  # shellcheck disable=SC2086
  {
    as_root env DEBIAN_FRONTEND=noninteractive apt-get -qq update &&
      as_root env DEBIAN_FRONTEND=noninteractive apt-get -qq -y --no-install-recommends \
        -o DPkg::Lock::Timeout=120 -o Dpkg::Use-Pty=0 install $missing
  } >/dev/null
  missing=$(missing_packages "$@")
  [ -z "$missing" ] && return 0
  echo "These packages are missing and could not be installed here: $missing"
  echo "As root: apt-get install $missing"
  return 1
}

# Sees to an rsyslogd for the test integration.Fleet. The package is only unpacked, below build/rsyslog:
# installed, it would take over this machine's system log.
unpack_rsyslog() {
  [ -x /usr/sbin/rsyslogd ] || [ -x build/rsyslog/usr/sbin/rsyslogd ] && return
  # shellcheck disable=SC2086
  command -v dpkg-deb > /dev/null 2>&1 && need_packages $kelvik_fleet_packages || return
  mkdir -p build/rsyslog
  (cd build/rsyslog && apt-get -qq download rsyslog && dpkg-deb -x rsyslog_*.deb .) > /dev/null 2>&1
}

# Where temporary files of the tests may stand in memory: prints the folder, or nothing. Tests sync
# thousands of times, which says nothing new on a slow disk in the slow stages.
memory_folder() {
  free_kib=$(df -Pk /dev/shm 2>/dev/null | awk 'NR == 2 && $1 == "tmpfs" { print $4 }')
  unused_kib=$(awk '$1 == "MemAvailable:" { print $2 }' /proc/meminfo 2>/dev/null)
  [ "${free_kib:-0}" -ge 1048576 ] && [ "${unused_kib:-0}" -ge 3145728 ] && [ -w /dev/shm ] || return
  probe=$(mktemp /dev/shm/kelvik-XXXXXX) || return
  printf '#!/bin/sh\n' > "$probe" && chmod 700 "$probe" && "$probe" 2>/dev/null && echo /dev/shm
  rm -f "$probe"
}

# configure_and_build PRESET [cmake arguments]: from an empty build folder, unless KELVIK_KEEP is set.
configure_and_build() {
  preset=$1
  shift
  [ -n "${KELVIK_KEEP:-}" ] || rm -rf "build/$preset"
  mkdir -p "build/$preset"
  if ! cmake --preset "$preset" "$@" > "build/$preset/configure.log" 2>&1; then
    cat "build/$preset/configure.log"
    return 1
  fi
  grep -A3 'Warning' "build/$preset/configure.log"
  if ! cmake --build "build/$preset" > "build/$preset/build.log" 2>&1; then
    grep -v '^\[[0-9]*/[0-9]*\] \(Building\|Linking\|Creating\)' "build/$preset/build.log"
    return 1
  fi
}

# run_fuzzers SECONDS: every target of build/fuzz for so long, from its seeds, one on each core at a
# time. What it finds new goes to build/fuzz/corpus, an input that fails to build/fuzz/found. Counts in
# fuzz_passed, fuzz_failed.
run_fuzzers() {
  fuzz_passed=0
  fuzz_failed=0
  fuzz_running=
  mkdir -p build/fuzz/found
  trap 'kill $(jobs -p) 2> /dev/null; exit 130' INT TERM
  while read -r target seeds; do
    name=$(basename "$target")
    mkdir -p "build/fuzz/corpus/$name"
    UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
      "$target" -max_total_time="$1" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 -close_fd_mask=1 \
      -artifact_prefix="build/fuzz/found/$name-" "build/fuzz/corpus/$name" "$seeds" \
      > "build/fuzz/$name.log" 2>&1 < /dev/null &
    fuzz_running="$fuzz_running $name:$!"
    [ "$(echo "$fuzz_running" | wc -w)" -lt "$kelvik_cores" ] || settle_fuzzers "$1"
  done < build/fuzz/fuzzers.txt
  settle_fuzzers "$1"
  trap - INT TERM
}

# Waits for the targets of fuzz_running and says how each of them ended.
settle_fuzzers() {
  for running in $fuzz_running; do
    name=${running%:*}
    if wait "${running#*:}"; then
      fuzz_passed=$((fuzz_passed + 1))
      runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "build/fuzz/$name.log")
      echo "$name: ${runs:-?} runs in $1 s, nothing found"
    else
      fuzz_failed=$((fuzz_failed + 1))
      tail -n 60 "build/fuzz/$name.log"
      echo "$name: FAILED, see build/fuzz/$name.log and build/fuzz/found"
    fi
  done
  fuzz_running=
}
