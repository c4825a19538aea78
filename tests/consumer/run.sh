#!/usr/bin/env bash
# Installs a built tree into a temporary prefix, moves the prefix, and uses
# it as a client would: vell-lpm from another directory, a CMake project
# with find_package, C and C++ programs with pkg-config, the same project
# with add_subdirectory, and the .deb and .tar.gz packages.
# Usage: run.sh BUILD_DIR
set -euo pipefail
build=$(cd "$1" && pwd)
src=$(cd "$(dirname "$0")/../.." && pwd)
here=$src/tests/consumer
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
jobs=${JOBS:-2}
step() { echo "--- $*"; }
expect() {  # expect WANTED COMMAND...: the command's output is WANTED
  local got
  got=$("${@:2}")
  [ "$got" = "$1" ] || { echo "expected '$1', got '$got' from: ${*:2}"; exit 1; }
}

cmake --install "$build" --prefix "$work/installed" >/dev/null
mv "$work/installed" "$work/prefix"
p=$work/prefix
version=$(sed -n 's/#define VELL_DS_VERSION_STRING "\(.*\)"/\1/p' \
  "$p"/include/vell-ds/vell_ds_version.h)

step "no installed file refers to the build tree or the prefix it was installed to"
if grep -rlI -e "$build" -e "$work/installed" "$p"; then exit 1; fi
for f in "$p"/bin/* "$p"/lib*/libvell-ds.so*; do
  if readelf -d "$f" | grep -E 'R(UN)?PATH'; then exit 1; fi
done

step "vell-lpm from another directory"
(cd / && expect "vell-lpm (vell-ds) $version" "$p/bin/vell-lpm" --version)
(cd / && "$p/bin/vell-lpm" 8.8.8.8 | grep -qE '^8\.8\.8\.8 [1-9][0-9]* 8\.')

step "find_package"
cmake -S "$here" -B "$work/found" -DCMAKE_PREFIX_PATH="$p" >/dev/null
cmake --build "$work/found" -j"$jobs" >/dev/null
expect "consumer $version ok" "$work/found/consumer"

step "pkg-config"
export PKG_CONFIG_PATH=$(dirname "$(find "$p" -name vell-ds.pc)")
libdir=$(pkg-config --variable=libdir vell-ds)
# shellcheck disable=SC2046
cc -std=c99 -Wall -Werror "$here/consumer.c" -o "$work/consumer-c" \
  $(pkg-config --cflags --libs vell-ds-host) -Wl,-rpath,"$libdir"
expect "consumer-c ok" "$work/consumer-c"
# Both compilers, the headers found with a plain -I (not as system headers,
# whose warnings are hidden).
for cxx in "g++ -Wuseless-cast" "clang++"; do
  # shellcheck disable=SC2046,SC2086
  $cxx -std=c++20 -Wall -Wextra -Wold-style-cast -Werror "$here/consumer.cpp" \
    -o "$work/consumer-cpp" $(pkg-config --cflags --libs vell-ds-host) \
    -Wl,-rpath,"$libdir"
  expect "consumer $version ok" "$work/consumer-cpp"
done

step "add_subdirectory"
cmake -S "$here" -B "$work/sub" -DVELL_DS_SOURCE="$src" >/dev/null
cmake --build "$work/sub" -j"$jobs" >/dev/null
expect "consumer $version ok" "$work/sub/consumer"

step "cpack"
(cd "$work" && cpack --config "$build/CPackConfig.cmake" -B "$work/packages" >/dev/null)
tar tzf "$work"/packages/vell-ds-*.tar.gz >"$work/tgz.list"
grep -q '/bin/vell-lpm$' "$work/tgz.list"
dpkg-deb -c "$work"/packages/vell-ds_*.deb >"$work/deb.list"
grep -q '/include/vell-ds/vell/ds.hpp$' "$work/deb.list"
grep -q '/usr/share/doc/vell-ds/copyright$' "$work/deb.list"
# Depends names the shared libraries the programs link (vell-lpm's zlib and
# libbz2 among them).
depends=$(dpkg-deb -f "$work"/packages/vell-ds_*.deb Depends)
for lib in libc6 zlib1g libbz2; do
  [[ $depends == *"$lib"* ]] || { echo "Depends lacks $lib: $depends"; exit 1; }
done
echo "consumers built and ran against the installed package"
