#!/usr/bin/env bash
# Runs every libFuzzer target of a build for a short while on its seed corpus.
# usage: run-fuzzers.sh BUILD_DIR SECONDS
set -euo pipefail
build=$1
seconds=$2
root=$(cd "$(dirname "$0")/.." && pwd)
shopt -s nullglob
count=0
for fuzzer in "$build"/fuzz/*_fuzzer; do
  name=$(basename "$fuzzer")
  seeds="$root/fuzz/corpus/$name"
  scratch=$(mktemp -d)
  echo "== $name: ${seconds}s"
  # New inputs go to the scratch folder; the seed corpus stays as committed.
  "$fuzzer" -max_total_time="$seconds" -rss_limit_mb=2048 -timeout=10 -print_final_stats=0 \
    "$scratch" "$seeds" 2>"$scratch.log" || { tail -n 60 "$scratch.log"; rm -rf "$scratch" "$scratch.log"; exit 1; }
  grep -E '^(#[0-9]+: |Done)' "$scratch.log" | tail -n 1 || true
  rm -rf "$scratch" "$scratch.log"
  count=$((count + 1))
done
echo "fuzz: $count targets ran clean"
