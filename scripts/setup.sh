#!/usr/bin/env bash
# Installs the Debian packages a script needs, and nothing else; each caller
# names what it needs:
#   build   cmake, g++, pkg-config, xz (the embedded table) and the zlib and
#           libbz2 headers vell-lpm reads compressed tables with
#   tests   GoogleTest, DPDK (bench_lpm's peer; pkg-config also checks the
#           installed package's .pc files), bgpdump, grepcidr and
#           python3-netaddr (vell-lpm's oracles), clang and its runtimes (the
#           second compiler's tests, ThreadSanitizer)
#   fuzz    clang and libFuzzer
#   m32     the 32-bit compiler and zlib, and a way to run 32-bit programs
# Does nothing when everything is already there.
#
# A kernel built without 32-bit x86 support refuses 32-bit programs ("Exec
# format error"). Making them run there is a change to the whole machine: it
# installs qemu-user and registers it with the kernel (binfmt_misc) for every
# 32-bit x86 program, so that every way of starting them (ctest, the tool's
# test scripts) works unchanged. setup.sh makes it only when asked, with
# --register-emulator or VELL_REGISTER_EMULATOR=1 (CI sets it), and prints
# what it did and how to undo it; otherwise `m32` fails and says so.
set -euo pipefail

register=${VELL_REGISTER_EMULATOR:-0}
needs=()
for arg in "$@"; do
  case $arg in
    --register-emulator) register=1 ;;
    build | tests | fuzz | m32) needs+=("$arg") ;;
    *)
      echo "usage: setup.sh [--register-emulator] {build|tests|fuzz|m32}..." >&2
      exit 2
      ;;
  esac
done

pkgs=()
for need in "${needs[@]}"; do
  case $need in
    build) pkgs+=(cmake g++ pkg-config xz-utils zlib1g-dev libbz2-dev) ;;
    tests) pkgs+=(libgtest-dev googletest libdpdk-dev bgpdump grepcidr
                  python3-netaddr clang libclang-rt-14-dev) ;;
    fuzz) pkgs+=(clang libclang-rt-14-dev) ;;
    m32) pkgs+=(g++-multilib lib32z1-dev googletest) ;;
  esac
done

sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
install_missing() {
  local missing=() p
  for p in "$@"; do
    dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p")
  done
  ((${#missing[@]})) || return 0
  echo "setup: installing ${missing[*]}"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}" >/dev/null
}
((${#pkgs[@]} == 0)) || install_missing "${pkgs[@]}"

[[ " ${needs[*]} " == *" m32 "* ]] || exit 0

can_run_32bit() {
  local probe ok
  probe=$(mktemp)
  printf 'int main(void) { return 0; }\n' | gcc -m32 -x c - -o "$probe" &&
    "$probe" 2>/dev/null
  ok=$?
  rm -f "$probe"
  return $ok
}
can_run_32bit && exit 0
if [ "$register" != 1 ]; then
  cat >&2 <<'EOF'
setup: this kernel cannot run 32-bit programs. Running them under the
user-mode emulator is a change to the whole machine (installs qemu-user and
registers it with the kernel for 32-bit x86 programs); ask for it with
scripts/setup.sh --register-emulator m32, or VELL_REGISTER_EMULATOR=1.
EOF
  exit 1
fi

undo=()
if ! dpkg -s qemu-user >/dev/null 2>&1; then
  install_missing qemu-user
  undo+=("$sudo apt-get remove qemu-user")
fi
binfmt=/proc/sys/fs/binfmt_misc
if ! mountpoint -q "$binfmt"; then
  $sudo mount -t binfmt_misc binfmt_misc "$binfmt"
  echo "setup: mounted binfmt_misc on $binfmt"
  undo=("$sudo umount $binfmt" "${undo[@]}")
fi
if [ ! -e "$binfmt/qemu-i386" ]; then
  # ELF, 32-bit, little-endian, executable or shared object, machine i386.
  magic='\x7fELF\x01\x01\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00\x02\x00\x03\x00'
  mask='\xff\xff\xff\xff\xff\xfe\xfe\x00\xff\xff\xff\xff\xff\xff\xff\xff\xfe\xff\xff\xff'
  printf '%s' ":qemu-i386:M::$magic:$mask:/usr/bin/qemu-i386:" |
    $sudo tee "$binfmt/register" >/dev/null
  echo "setup: registered /usr/bin/qemu-i386 for 32-bit x86 programs" \
    "(until the next boot)"
  undo=("echo -1 | $sudo tee $binfmt/qemu-i386" "${undo[@]}")
fi
can_run_32bit || { echo "setup: cannot run 32-bit programs" >&2; exit 1; }
echo "setup: 32-bit programs run under qemu-i386"
if ((${#undo[@]})); then
  echo "setup: to undo:"
  printf '  %s\n' "${undo[@]}"
fi
