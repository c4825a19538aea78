#!/usr/bin/env bash
# Builds and runs the whole test suite in four configurations: 64-bit
# optimised, 64-bit under AddressSanitizer and UndefinedBehaviorSanitizer,
# 32-bit x86, all with GCC, and 64-bit optimised with clang and both
# sanitizers; then the tests whose readers run on threads of their own
# (named *Threads*) under clang's ThreadSanitizer. Also checks what the shared
# library exports and needs.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh build tests m32

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
# ThreadSanitizer maps its shadow memory at fixed addresses, which a kernel
# randomising mappings more widely than it expects can overlap: setarch -R
# turns randomisation off for these processes only.
echo "=== build/tsan: the threaded tests under ThreadSanitizer"
cmake -S . -B build/tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVELL_TSAN=ON \
  -DVELL_BENCH=OFF -DVELL_TOOLS=OFF -DVELL_INSTALL=OFF \
  -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ >/dev/null
cmake --build build/tsan -j"$jobs" --target test_trie test_cpp
for t in test_trie test_cpp; do
  TSAN_OPTIONS=halt_on_error=1 setarch "$(uname -m)" -R \
    build/tsan/tests/$t --gtest_filter='*Threads*'
done
echo "all tests passed in the five configurations"
