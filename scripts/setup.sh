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
missing=()
for p in "${pkgs[@]}"; do
  dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p")
done
if ((${#missing[@]})); then
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  echo "setup: installing ${missing[*]}"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}" >/dev/null
fi
