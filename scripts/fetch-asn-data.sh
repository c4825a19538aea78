#!/usr/bin/env bash
# Fetches the current address-to-ASN package from the npm registry and
# converts all of it to vell-lpm's range format (START,END,ASN; the
# organisation names are dropped) in data/full/, with the package's licence
# files beside it. With --update-shipped it also replaces the compressed
# tables shipped in data/.
set -euo pipefail
cd "$(dirname "$0")/.."

package=@ip-location-db/asn
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

(cd "$work" && npm pack --silent "$package" >/dev/null && tar xzf ./*.tgz)
src=$work/package
version=$(sed -n 's/.*"version": *"\([^"]*\)".*/\1/p' "$src/package.json")

mkdir -p data/full
for fam in ipv4 ipv6; do
  # The first three fields never hold quotes or commas.
  cut -d, -f1-3 "$src/asn-$fam.csv" >"data/full/asn-$fam.csv"
done
cp "$src"/*LICENSE "$src/MODIFICATIONS" data/full/
echo "$package $version" >data/full/VERSION
wc -l data/full/asn-ipv4.csv data/full/asn-ipv6.csv

if [ "${1:-}" = --update-shipped ]; then
  for fam in ipv4 ipv6; do
    xz -9e -T1 -c "data/full/asn-$fam.csv" >"data/asn-$fam.csv.xz"
  done
  echo "$package $version" >data/VERSION
  ls -l data/*.xz
fi
