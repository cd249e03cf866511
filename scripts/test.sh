#!/usr/bin/env bash
# Builds and passes every test. Installs missing Debian packages first, then runs
# each stage given (default: all of them, in this order):
#   dev      the whole suite, debug build
#   asan     the whole suite under AddressSanitizer + UndefinedBehaviorSanitizer
#   tsan     the exporter and reader tests under ThreadSanitizer
#   fuzz     every libFuzzer target for VORN_FUZZ_SECONDS (default 30) each
#   package  install, out-of-tree consumer, .deb built, installed and run
# Example: scripts/test.sh dev   (one stage only)
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
stages=("$@")
((${#stages[@]})) || stages=(dev asan tsan fuzz package)
jobs=$(nproc)
launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
for s in "${stages[@]}"; do
  start=$SECONDS
  echo "=== stage $s"
  case "$s" in
    dev | asan | tsan)
      cmake --preset "$s" "${launcher[@]}" >/dev/null
      cmake --build --preset "$s" -j "$jobs"
      ctest --preset "$s" -j "$jobs"
      ;;
    fuzz) scripts/fuzz.sh "${VORN_FUZZ_SECONDS:-30}" ;;
    package) scripts/package-check.sh ;;
    *)
      echo "unknown stage '$s' (dev, asan, tsan, fuzz, package)" >&2
      exit 2
      ;;
  esac
  echo "=== stage $s passed in $((SECONDS - start)) s"
done
