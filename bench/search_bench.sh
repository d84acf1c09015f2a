#!/usr/bin/env bash
# The search engine's figures: installs the photographs that search_bench works from, then
# runs it at 100,000 photos and, with --million, at 1,000,000 (that run takes long).
# Usage: bench/search_bench.sh BUILD-FOLDER [--million]
set -euo pipefail
build=$(realpath "$1")
cd "$(dirname "$0")/.."
scripts/install-deps.sh mate-backgrounds gnome-backgrounds ukui-wallpapers >&2
cmake --build "$build" --target search_bench
"$build/bench/search_bench" --photos 100000 --jobs 2
if [ "${2:-}" = "--million" ]; then
  "$build/bench/search_bench" --photos 1000000 --jobs 2
fi
