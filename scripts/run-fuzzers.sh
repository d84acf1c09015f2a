#!/usr/bin/env bash
# Runs the libFuzzer targets of a build, each for SECONDS on its seed corpus fuzz/corpus/<name>/.
# usage: run-fuzzers.sh [--keep] BUILD_DIR SECONDS [NAME...]
#   NAME...  only these targets (default: all of the build)
#   --keep   the long run: inputs that add coverage are minimised into the seed folder
#            (-merge=1), a faulting input is kept in BUILD_DIR/fuzz-faults/ and the other
#            targets still run. Without it new inputs are thrown away and the first fault
#            stops the run.
set -euo pipefail
keep=0
if [[ ${1:-} == --keep ]]; then keep=1; shift; fi
build=$1
seconds=$2
shift 2
root=$(cd "$(dirname "$0")/.." && pwd)
faults="$build/fuzz-faults"
shopt -s nullglob
if (($# > 0)); then
  fuzzers=()
  for name in "$@"; do fuzzers+=("$build/fuzz/$name"); done
else
  fuzzers=("$build"/fuzz/*_fuzzer)
fi
count=0
failed=0
for fuzzer in "${fuzzers[@]}"; do
  name=$(basename "$fuzzer")
  seeds="$root/fuzz/corpus/$name"
  scratch=$(mktemp -d)
  mkdir -p "$seeds" "$faults"
  before=$(find "$seeds" -type f | wc -l)
  bad=0
  echo "== $name: ${seconds}s"
  # New inputs go to the scratch folder; the seeds change only through the merge below. What
  # the library prints while it runs goes to the log with the fuzzer's own report.
  if ! "$fuzzer" -max_total_time="$seconds" -rss_limit_mb=2048 -timeout=10 -print_final_stats=1 \
      -artifact_prefix="$faults/$name-" "$scratch" "$seeds" >"$scratch.log" 2>&1; then
    tail -n 60 "$scratch.log"
    if ((!keep)); then rm -rf "$scratch" "$scratch.log"; exit 1; fi
    echo "$name: fault kept in $faults/"
    bad=1
  fi
  runs=$(grep -E '^stat::number_of_executed_units' "$scratch.log" | awk '{print $2}' || true)
  if ((keep)); then
    "$fuzzer" -merge=1 -rss_limit_mb=2048 -timeout=10 "$seeds" "$scratch" >>"$scratch.log" 2>&1 ||
      { tail -n 20 "$scratch.log"; bad=1; }
    after=$(find "$seeds" -type f | wc -l)
    echo "$name: ${runs:-?} inputs run, corpus $before -> $after files"
  else
    grep -E '^(#[0-9]+: |Done)' "$scratch.log" | tail -n 1 || true
  fi
  rm -rf "$scratch" "$scratch.log"
  failed=$((failed + bad))
  count=$((count + 1))
done
if ((failed)); then
  echo "fuzz: $failed of $count targets failed"
  exit 1
fi
echo "fuzz: $count targets ran clean"
