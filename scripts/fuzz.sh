#!/usr/bin/env bash
# Builds the libFuzzer targets of tests/fuzz with clang, AddressSanitizer and
# UndefinedBehaviorSanitizer in build/fuzz, then runs each target for SECONDS
# (default 20), or only the targets named (fuzz.sh 600 timer trie). A target
# starts from its seed corpus tests/fuzz/corpus/<name>/ and what earlier runs
# kept in build/fuzz/corpus/<name>/. FUZZ_FLAGS adds libFuzzer options.
# Exits non-zero when a target finds a crash, leak, hang or failed check, and
# prints the path of the input that reproduces it.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh build fuzz
secs=${1:-20}
shift || true
dir=build/fuzz

cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DVELL_SANITIZE=ON -DVELL_FUZZ=ON -DVELL_TESTS=OFF -DVELL_BENCH=OFF >/dev/null
cmake --build "$dir" --target vell-fuzz -j"${JOBS:-2}"

names=("$@")
if ((${#names[@]} == 0)); then
  for t in "$dir"/tests/fuzz/fuzz_*; do
    [ -x "$t" ] && names+=("${t##*/fuzz_}")
  done
fi

status=0
for name in "${names[@]}"; do
  target=$dir/tests/fuzz/fuzz_$name
  kept=$dir/corpus/$name
  found=$dir/findings/$name
  mkdir -p "$kept" "$found"
  log=$dir/fuzz_$name.log
  echo "=== fuzz_$name: $secs s"
  # shellcheck disable=SC2086
  if "$target" -max_total_time="$secs" -timeout=10 -print_final_stats=1 \
    -artifact_prefix="$found/" ${FUZZ_FLAGS:-} "$kept" "tests/fuzz/corpus/$name" \
    >"$log" 2>&1; then
    grep -aE '^stat::number_of_executed_units|^#[0-9]+ *DONE' "$log" | tail -2
  else
    tail -n 30 "$log"
    echo "fuzz_$name: FINDING; reproduce with: $target $(ls -t "$found"/* | head -1)"
    status=1
  fi
done
exit $status
