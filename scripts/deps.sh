#!/usr/bin/env bash
# Installs the Debian packages the build, the tests and the tools need, when missing.
set -euo pipefail
pkgs=(cmake ninja-build g++ googletest libgtest-dev libgmock-dev libbenchmark-dev
      libfmt-dev libcli11-dev nlohmann-json3-dev clang-format
      # the Linux platform and its namespace tests
      libmnl-dev iproute2
      # the exporter and its real Prometheus server
      libcpp-httplib-dev prometheus
      # the SNMP subagent and a real master agent with its tools
      libsnmp-dev snmpd snmp
      # fuzzing and the thread sanitizer preset
      clang-14 libclang-rt-14-dev libfuzzer-14-dev
      # packaging
      dpkg-dev file)
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
