#!/usr/bin/env bash
# CPU per poll cycle of the Linux platform serving 256 veth pairs (512 devices,
# one end of each pair with an mq root of 4 queues) at a 1 s poll period,
# netlink dumps included, next to the simulated switch of the same size (512
# ports, 2 queues each: the same 1024 queues) in the same run. Both agents run
# at once for about 25 s; the figure is each one's last periodic status line.
#
#   scripts/linux-cpu-figure.sh [build-dir]     (default: build/release, built if missing)
#
# Needs root (network namespaces). Cleans up everything it made, also when
# interrupted.
set -euo pipefail
cd "$(dirname "$0")/.."
bin=${1:-build/release}
if [ ! -x "$bin/agent/vorn-agent" ] || [ ! -x "$bin/agent/vorn-sim" ]; then
  cmake --preset release >/dev/null
  cmake --build --preset release -j "$(nproc)" --target vorn-agent vorn-sim
fi
pairs=256
tag="cpufig$$"
netns="$tag"
work=$(mktemp -d)
linuxPid=""
simPid=""
cleanup() {
  [ -n "$linuxPid" ] && kill "$linuxPid" 2>/dev/null || true
  [ -n "$simPid" ] && kill "$simPid" 2>/dev/null || true
  wait 2>/dev/null || true
  ip netns del "$netns" 2>/dev/null || true
  rm -f /dev/shm/"$tag"lx.* /dev/shm/"$tag"sim.* /tmp/vorn-"$tag"lx.sock /tmp/vorn-"$tag"sim.sock
  rm -rf "$work"
}
trap cleanup EXIT INT TERM

ip netns add "$netns"
ip netns exec "$netns" sysctl -qw net.ipv6.conf.all.disable_ipv6=1 net.ipv6.conf.default.disable_ipv6=1
for ((p = 0; p < pairs; p++)); do
  echo "link add va$p numtxqueues 4 numrxqueues 4 type veth peer name vb$p"
done >"$work/add"
ip -n "$netns" -batch "$work/add"
for ((p = 0; p < pairs; p++)); do echo "qdisc add dev va$p root handle 1: mq"; done >"$work/tc"
tc -n "$netns" -batch "$work/tc"
for ((p = 0; p < pairs; p++)); do echo "link set va$p up"; echo "link set vb$p up"; done >"$work/up"
ip -n "$netns" -batch "$work/up"
echo '{"ethPorts": 512, "queuesPerPort": 2, "fabricPorts": 0, "vlanIntfs": 0, "vlans": 0,
       "coppClasses": [], "pollPeriod": 1.0}' >"$work/sim.json"

ip netns exec "$netns" "$bin/agent/vorn-agent" --platform linux -n "${tag}lx" --poll-period 1 \
  --duration 26 --status-interval 5 >"$work/linux.log" 2>&1 &
linuxPid=$!
"$bin/agent/vorn-sim" -n "${tag}sim" --topology "$work/sim.json" --duration 26 \
  --status-interval 5 >"$work/sim.log" 2>&1 &
simPid=$!
wait "$linuxPid" || true
linuxPid=""
wait "$simPid" || true
simPid=""

figure() { grep -v stopping "$1" | grep -o 'interfaces [0-9]* .*cpu-per-poll-cycle [0-9.]* ms' | tail -1; }
echo "linux (512 veth devices, 1024 mq queues): $(figure "$work/linux.log")"
echo "sim   (512 ports, 1024 queues):            $(figure "$work/sim.log")"
grep -o "link-dumps [0-9]* qdisc-dumps [0-9]* dump-cpu [0-9.]* ms (links [0-9.]* qdiscs [0-9.]*)" "$work/linux.log" | tail -1 | sed 's/^/linux dumps in 25 s: /'
