#!/usr/bin/env bash
# Builds and runs every test, for each preset given (default: dev, then asan).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
presets=("$@")
((${#presets[@]})) || presets=(dev asan)
jobs=$(nproc)
for p in "${presets[@]}"; do
  echo "=== preset $p"
  cmake --preset "$p" >/dev/null
  cmake --build --preset "$p" -j "$jobs"
  ctest --preset "$p" -j "$jobs"
done
