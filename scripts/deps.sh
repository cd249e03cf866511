#!/usr/bin/env bash
# Installs the Debian packages the build, the tests and the tools need, when missing.
set -euo pipefail
pkgs=(cmake ninja-build g++ googletest libgtest-dev libgmock-dev libbenchmark-dev
      libfmt-dev libcli11-dev nlohmann-json3-dev clang-format)
missing=()
for p in "${pkgs[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if ((${#missing[@]})); then
  echo "installing: ${missing[*]}"
  SUDO=""; [ "$(id -u)" -ne 0 ] && SUDO=sudo
  $SUDO apt-get update
  $SUDO apt-get install -y "${missing[@]}"
fi
