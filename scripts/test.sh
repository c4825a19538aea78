#!/usr/bin/env bash
# Builds and runs the whole test suite in four configurations: 64-bit
# optimised, 64-bit under AddressSanitizer and UndefinedBehaviorSanitizer,
# 32-bit x86, all with GCC, and 64-bit optimised with clang and both
# sanitizers. Also checks what the shared library exports and needs.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh

jobs=${JOBS:-2}
run() {
  local dir=$1
  shift
  echo "=== $dir: $*"
  cmake -S . -B "$dir" "$@" >/dev/null
  cmake --build "$dir" -j"$jobs"
  (cd "$dir" && ctest --output-on-failure -j"$jobs")
}

run build/release -DCMAKE_BUILD_TYPE=Release
bash scripts/check-exports.sh build/release/libvell-ds.so
run build/sanitize -DCMAKE_BUILD_TYPE=Debug -DVELL_SANITIZE=ON -DVELL_BENCH=OFF
run build/m32 -DCMAKE_BUILD_TYPE=Release -DVELL_M32=ON -DVELL_BENCH=OFF
bash scripts/check-exports.sh build/m32/libvell-ds.so
run build/clang -DCMAKE_BUILD_TYPE=Release -DVELL_SANITIZE=ON -DVELL_BENCH=OFF \
  -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++
echo "all tests passed in the four configurations"
