#!/usr/bin/env bash
# Builds the fuzz preset (clang++-14, libFuzzer, AddressSanitizer and
# UndefinedBehaviorSanitizer) and runs every target under fuzz/ for a bounded time
# (default 60 seconds each) over a scratch copy of its seed corpus, so the committed
# corpus never grows. Crashes are kept in build/fuzz/artifacts/; the script exits
# non-zero if any target failed. Usage: scripts/fuzz.sh [seconds]
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-60}"
launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
cmake --preset fuzz "${launcher[@]}" >/dev/null

# fuzz/<area>/<name>.cpp is the target fuzz_<area>_<name>.
mapfile -t sources < <(find fuzz -mindepth 2 -name '*.cpp' | sort)
targets=()
for src in "${sources[@]}"; do
  area="$(basename "$(dirname "$src")")"
  targets+=("fuzz_${area}_$(basename "$src" .cpp)")
done
cmake --build build/fuzz -j "$(nproc)" --target "${targets[@]}"

artifacts="$PWD/build/fuzz/artifacts"
mkdir -p "$artifacts"
failed=0
for i in "${!sources[@]}"; do
  src="${sources[$i]}"
  target="${targets[$i]}"
  corpus="${src%.cpp}.corpus"
  scratch="$(mktemp -d)"
  [ -d "$corpus" ] && cp -r "$corpus/." "$scratch/"
  echo "== $target: ${seconds}s over $(ls "$scratch" | wc -l) seeds"
  if ! ASAN_OPTIONS="detect_leaks=1:abort_on_error=1" \
      UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1" \
      "build/fuzz/fuzz/$target" "$scratch" -max_total_time="$seconds" -timeout=10 \
      -max_len=65536 -rss_limit_mb=2048 -print_final_stats=1 \
      -artifact_prefix="$artifacts/$target-"; then
    echo "!! $target failed; reproduce with: build/fuzz/fuzz/$target $artifacts/$target-<file>"
    failed=1
  fi
  echo "== $target: corpus grew to $(ls "$scratch" | wc -l) inputs (scratch copy, discarded)"
  rm -rf "$scratch"
done
exit "$failed"
