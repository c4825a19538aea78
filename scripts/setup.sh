#!/usr/bin/env bash
# Installs what the build, the tests, the fuzz targets and the benchmarks
# need on a fresh Debian machine; does nothing when everything is already
# there.
set -euo pipefail

# GoogleTest: the 64-bit build (libgtest-dev) and its sources for the 32-bit
# one; DPDK is bench_lpm's peer; pkg-config finds it and checks the
# installed package's .pc files; xz unpacks the embedded table. vell-lpm
# reads gzip and bzip2 tables (zlib, also for -m32, and libbz2); its tests
# check it against bgpdump, grepcidr and python3-netaddr. clang and its
# runtime (libFuzzer) build the fuzz targets and the second compiler's tests.
pkgs=(cmake g++ g++-multilib libgtest-dev googletest pkg-config libdpdk-dev
      xz-utils zlib1g-dev lib32z1-dev libbz2-dev bgpdump grepcidr
      python3-netaddr clang libclang-rt-14-dev)
sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
missing=()
for p in "${pkgs[@]}"; do
  dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p")
done
if ((${#missing[@]})); then
  echo "setup: installing ${missing[*]}"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}" >/dev/null
fi

# The 32-bit configuration's tests run its programs. A kernel built without
# 32-bit x86 support refuses them ("Exec format error"); there the user-mode
# emulator is registered for 32-bit x86 ELF files, so that every way of
# starting them (ctest, the tool's test scripts) works unchanged.
can_run_32bit() {
  local probe
  probe=$(mktemp)
  printf 'int main(void) { return 0; }\n' | gcc -m32 -x c - -o "$probe" &&
    "$probe" 2>/dev/null
  local ok=$?
  rm -f "$probe"
  return $ok
}
if ! can_run_32bit; then
  if ! dpkg -s qemu-user >/dev/null 2>&1; then
    echo "setup: installing qemu-user (this kernel cannot run 32-bit programs)"
    $sudo apt-get update -qq
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq qemu-user >/dev/null
  fi
  binfmt=/proc/sys/fs/binfmt_misc
  mountpoint -q "$binfmt" || $sudo mount -t binfmt_misc binfmt_misc "$binfmt"
  if [ ! -e "$binfmt/qemu-i386" ]; then
    # ELF, 32-bit, little-endian, executable or shared object, machine i386.
    magic='\x7fELF\x01\x01\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00\x02\x00\x03\x00'
    mask='\xff\xff\xff\xff\xff\xfe\xfe\x00\xff\xff\xff\xff\xff\xff\xff\xff\xfe\xff\xff\xff'
    printf '%s' ":qemu-i386:M::$magic:$mask:/usr/bin/qemu-i386:" |
      $sudo tee "$binfmt/register" >/dev/null
  fi
  can_run_32bit || { echo "setup: cannot run 32-bit programs" >&2; exit 1; }
  echo "setup: 32-bit programs run under qemu-i386"
fi
