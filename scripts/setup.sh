#!/usr/bin/env bash
# Installs what the build, the tests, the fuzz targets and the benchmarks
# need on a fresh Debian machine; does nothing when everything is already
# there.
set -euo pipefail

# GoogleTest: the 64-bit build (libgtest-dev) and its sources for the 32-bit
# one; DPDK is bench_lpm's peer; pkg-config finds it and checks the
# installed package's .pc files; xz unpacks the embedded table; clang and its
# runtime (libFuzzer) build the fuzz targets and the second compiler's tests.
pkgs=(cmake g++ g++-multilib libgtest-dev googletest pkg-config libdpdk-dev
      xz-utils clang libclang-rt-14-dev)
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
