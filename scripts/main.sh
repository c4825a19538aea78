#!/usr/bin/env bash
# The main job: installs what is missing, builds the optimised tree
# (build/release, as scripts/test.sh does) and runs vell-lpm on the embedded
# address-to-ASN table: both families' statistics, a few lookups and the
# lookup rate.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh build

cmake -S . -B build/release -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build/release --target vell-lpm -j"${JOBS:-2}"

echo "=== vell-lpm on the embedded table (data/README.md: source and licence)"
build/release/tools/vell-lpm --stats --bench "${LOOKUPS:-4000000}" \
  8.8.8.8 1.1.1.1 193.0.14.129 203.0.113.7 \
  2001:4860:4860::8888 2606:4700:4700::1111 2001:7fd::1 2001:db8::1
