#!/usr/bin/env bash
# Fails when the shared library exports a symbol that is not a member of the classes of
# orvane.h (or their type information).
set -euo pipefail
library=$1
exported=$(nm -D --defined-only -C "$library" | awk '{ $1 = ""; $2 = ""; sub(/^  /, ""); print }')
[ -n "$exported" ] || { echo "no exported symbols in $library"; exit 1; }
foreign=$(printf '%s\n' "$exported" |
  grep -v -E '^(FID_Exception|CFIDContainer|CFIDExtractor|CFIDDatabase)::' |
  grep -v -E '^(typeinfo|typeinfo name|vtable) for FID_Exception$' || true)
if [ -n "$foreign" ]; then
  echo "symbols exported that are not part of orvane.h:"
  printf '%s\n' "$foreign"
  exit 1
fi
echo "$(printf '%s\n' "$exported" | wc -l) exported symbols, all of orvane.h"
