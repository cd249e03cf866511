#!/usr/bin/env bash
# The packaging CI step, end to end:
#   1. configure a release build in its own directory (no tests, no benchmarks)
#      and build it;
#   2. check that the installed header set is still the closure of the public
#      roots (scripts/public-headers.sh --check);
#   3. install into a staging directory (DESTDIR) and build and run the
#      out-of-tree consumer (examples/minimal-agent) against that stage only,
#      once through the CMake package and once through pkg-config;
#   4. build the .deb with cpack, list its contents and show its dependencies;
#   5. install the .deb on this machine with apt-get, run the installed vorn-sim
#      for a few seconds in a namespace of its own, read it with the installed
#      vornctl, then remove the package and the namespace's tables.
# Any failing step stops the script with a message naming it.
#
#   scripts/package-check.sh [build-dir]     (default: build/package-check)
set -euo pipefail
cd "$(dirname "$0")/.."
src=$(pwd)
build=${1:-build/package-check}
mkdir -p "$build"
build=$(cd "$build" && pwd)
stage=$build/stage
jobs=$(nproc)
ns="pkgcheck$$"
start=$SECONDS

step() { printf '\n=== [%3ds] %s\n' $((SECONDS - start)) "$*"; }
fail() { echo "package-check: FAILED: $*" >&2; exit 1; }

agent=""
installed=0
cleanup() {
  [ -n "$agent" ] && kill "$agent" 2>/dev/null && wait "$agent" 2>/dev/null
  if ((installed)); then
    apt-get remove -y -q vorn-counters >/dev/null 2>&1 || true
    dpkg --purge vorn-counters >/dev/null 2>&1 || true
  fi
  rm -f /dev/shm/"$ns".* /dev/shm/pkgex"$$".* "/tmp/vorn-$ns.sock" 2>/dev/null || true
}
trap cleanup EXIT

launcher=()
if command -v ccache >/dev/null; then launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache); fi

step "configure (release, no tests, no benchmarks) in $build"
cmake -S "$src" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr \
  -DVORN_BUILD_TESTS=OFF -DVORN_BUILD_BENCH=OFF "${launcher[@]}" >"$build/configure.log" ||
  { cat "$build/configure.log"; fail "configure"; }

step "build"
cmake --build "$build" -j "$jobs" || fail "build"

step "public header set"
scripts/public-headers.sh --check || fail "public header list"

step "install into the staging directory $stage"
rm -rf "$stage"
DESTDIR="$stage" cmake --install "$build" >"$build/install.log" || fail "install"
prefix=$stage/usr
libdir=$(cd "$prefix" && find lib -name VornCountersConfig.cmake | head -1 |
  sed 's|/cmake/VornCounters/VornCountersConfig.cmake||')
[ -n "$libdir" ] || fail "no CMake package in the stage"
expected=$(grep -vc '^#' cmake/public-headers.txt)
shipped=$(find "$prefix/include/vorn-counters" -type f | wc -l)
[ "$expected" -eq "$shipped" ] || fail "stage holds $shipped headers, the list $expected"
echo "staged: $shipped headers, libraries in $libdir:"
ls "$prefix/$libdir" | grep '\.so' | tr '\n' ' '
echo
for lib in "$prefix/$libdir"/libvorn*.so.*.*.*; do
  soname=$(objdump -p "$lib" | awk '/SONAME/ {print $2}')
  [[ "$soname" =~ \.so\.[0-9]+$ ]] || fail "$lib has no versioned SONAME ($soname)"
done

step "each public root header compiles on its own from the stage"
grep -v '^\s*#' cmake/public-header-roots.txt | grep -v '^\s*$' |
  sed -E 's#^(platform|model)/##' |
  xargs -P "$jobs" -I{} sh -c 'echo "#include \"{}\"" | g++ -std=c++20 -fsyntax-only -Wall \
    -Wextra -Werror -I"$1/include/vorn-counters" -x c++ - || { echo "not self-contained: {}";
    exit 255; }' _ "$prefix" ||
  fail "a public header does not compile on its own"
echo "ok"

step "out-of-tree consumer against the stage (CMake package)"
rm -rf "$build/minimal-agent"
cmake -S examples/minimal-agent -B "$build/minimal-agent" -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_PREFIX_PATH="$prefix" "${launcher[@]}" >"$build/minimal-agent.log" ||
  { cat "$build/minimal-agent.log"; fail "consumer configure"; }
cmake --build "$build/minimal-agent" || fail "consumer build"
LD_LIBRARY_PATH="$prefix/$libdir" "$build/minimal-agent/minimal-agent" "pkgex$$" 3 ||
  fail "consumer run"

step "out-of-tree consumer against the stage (pkg-config)"
export PKG_CONFIG_PATH="$prefix/$libdir/pkgconfig"
pkg-config --modversion vorn-counters
# shellcheck disable=SC2046
g++ -Wall -Wextra -Werror -o "$build/minimal-agent-pc" examples/minimal-agent/main.cpp \
  $(pkg-config --cflags --libs vorn-counters) || fail "consumer build through pkg-config"
LD_LIBRARY_PATH="$prefix/$libdir" "$build/minimal-agent-pc" "pkgex$$" 2 >/dev/null ||
  fail "consumer (pkg-config) run"
echo "ok"
unset PKG_CONFIG_PATH

step "Debian package"
rm -f "$build"/vorn-counters_*.deb
(cd "$build" && cpack -G DEB >"$build/cpack.log") || { cat "$build/cpack.log"; fail "cpack"; }
deb=$(ls "$build"/vorn-counters_*.deb)
echo "$deb"
dpkg -c "$deb"
step "package information (dependencies)"
dpkg -I "$deb"

step "install the package with apt-get"
if dpkg-query -W -f='${Status}' vorn-counters 2>/dev/null | grep -q "install ok installed"; then
  fail "vorn-counters is already installed here; remove it first"
fi
installed=1
apt-get install -y -q -o DPkg::Lock::Timeout=120 "$deb" || fail "apt-get install"
for p in vorn-agent vorn-sim vornctl nimlog-decode; do
  [ -x "/usr/bin/$p" ] || fail "/usr/bin/$p not installed"
done
ls /usr/lib/*/libvorncounters.so* /usr/lib/libvorncounters.so* 2>/dev/null || true

step "run the installed vorn-sim and read it with the installed vornctl (namespace $ns)"
sock="/tmp/vorn-$ns.sock"
/usr/bin/vorn-sim -n "$ns" --duration 6 --status-interval 0 >"$build/vorn-sim.log" 2>&1 &
agent=$!
for _ in $(seq 50); do [ -S "$sock" ] && break; sleep 0.1; done
[ -S "$sock" ] || { cat "$build/vorn-sim.log"; fail "the installed vorn-sim did not start"; }
sleep 2.5
/usr/bin/vornctl -n "$ns" show interfaces counters || fail "vornctl show interfaces counters"
/usr/bin/vornctl -n "$ns" --json show interfaces counters Ethernet1 | head -20 ||
  fail "vornctl --json show"
wait "$agent" || { cat "$build/vorn-sim.log"; fail "the installed vorn-sim exited non-zero"; }
agent=""
cat "$build/vorn-sim.log"

step "remove the package and the namespace's tables"
apt-get remove -y -q vorn-counters || fail "apt-get remove"
# remove leaves the package known to dpkg as "removed, configuration kept".
dpkg --purge vorn-counters >/dev/null || fail "dpkg --purge"
installed=0
[ ! -e /usr/bin/vorn-sim ] || fail "/usr/bin/vorn-sim is still there after removal"
rm -f /dev/shm/"$ns".* "$sock"

step "package-check passed in $((SECONDS - start)) s"
