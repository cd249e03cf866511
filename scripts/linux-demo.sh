#!/usr/bin/env bash
# The agent on real Linux network devices: makes a network namespace with three
# veth pairs (4 transmit queues each, an mq root on one end), runs
# `vorn-agent --platform linux` inside it, sends real UDP traffic between the
# pairs, shows what vornctl reads, removes one pair, and cleans everything up,
# namespace included, also when interrupted.
#
#   sudo scripts/linux-demo.sh [build-dir]     (default: build/release, built if missing)
set -euo pipefail
cd "$(dirname "$0")/.."
bin=${1:-build/release}
if [ ! -x "$bin/agent/vorn-agent" ] || [ ! -x "$bin/tools/vornctl/vornctl" ]; then
  cmake --preset release >/dev/null
  cmake --build --preset release -j "$(nproc)" --target vorn-agent vornctl
fi
if [ "$(id -u)" -ne 0 ]; then
  echo "linux-demo: needs root (it creates a network namespace)" >&2
  exit 1
fi
tag="lxdemo$$"
netns="$tag"
sock="/tmp/vorn-$tag.sock"
log=$(mktemp)
agent=""
sender=""
cleanup() {
  [ -n "$sender" ] && kill "$sender" 2>/dev/null || true
  [ -n "$agent" ] && kill "$agent" 2>/dev/null && wait "$agent" 2>/dev/null || true
  ip netns del "$netns" 2>/dev/null || true
  rm -f /dev/shm/"$tag".* "$sock" "$log"
}
trap cleanup EXIT
trap 'echo "linux-demo: interrupted, cleaning up"; exit 130' INT TERM
ctl() { "$bin/tools/vornctl/vornctl" -n "$tag" "$@"; }
nsx() { ip netns exec "$netns" "$@"; }

ip netns add "$netns"
nsx sysctl -qw net.ipv6.conf.all.disable_ipv6=1 net.ipv6.conf.default.disable_ipv6=1
for p in 0 1 2; do
  ip -n "$netns" link add "va$p" address "02:00:00:00:0$p:0a" numtxqueues 4 numrxqueues 4 \
    type veth peer name "vb$p" address "02:00:00:00:0$p:0b" numtxqueues 4 numrxqueues 4
  tc -n "$netns" qdisc add dev "va$p" root handle 1: mq
  # Frames to 10.N.0.2 leave va<p> and arrive at vb<p> (nobody holds the address,
  # so the peer counts them and drops them at the IP layer).
  ip -n "$netns" addr add "10.$((p + 1)).0.1/24" dev "va$p"
  ip -n "$netns" neigh add "10.$((p + 1)).0.2" lladdr "02:00:00:00:0$p:0b" dev "va$p" nud permanent
  ip -n "$netns" link set "va$p" up
  ip -n "$netns" link set "vb$p" up
done

ip netns exec "$netns" "$bin/agent/vorn-agent" --platform linux -n "$tag" --socket "$sock" --poll-period 1 \
  --status-interval 5 >"$log" 2>&1 &
agent=$!
for _ in $(seq 50); do [ -S "$sock" ] && break; sleep 0.1; done
sleep 1.5
echo "== interfaces and their kernel names"
ctl show interfaces names

echo "== sending UDP for 6 s (va0 heavy, va1 light, va2 idle)"
# A small sender inside the namespace: bash's /dev/udp, one flow per source port.
ip netns exec "$netns" bash -c '
  end=$((SECONDS + 6))
  while [ $SECONDS -lt $end ]; do
    for i in $(seq 200); do echo -n "payload-$i-xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx" >/dev/udp/10.1.0.2/9; done
    for i in $(seq 20); do echo -n "light-$i" >/dev/udp/10.2.0.2/9; done
    sleep 0.05
  done' &
sender=$!
sleep 3
ctl show interfaces counters rates
wait "$sender"
sender=""
sleep 1.2
echo "== totals after the traffic"
ctl show interfaces counters
echo "== the kernel's own view of va0 (sysfs, inside the namespace)"
nsx sh -c 'cd /sys/class/net/va0/statistics && echo "tx_packets $(cat tx_packets) tx_bytes $(cat tx_bytes)"'
echo "== egress queues (children of va<p>'s mq root)"
ctl show interfaces counters queues
echo "== clear va0's counters, then look again"
ctl clear counters "$(ctl --json show interfaces names va0 | grep -o '"interface": "[^"]*"' | cut -d'"' -f4)"
ctl show interfaces counters va0
echo "== removing the pair va2/vb2"
ip -n "$netns" link del va2
sleep 0.5
ctl show interfaces names
ctl show interfaces counters
echo "== agent status"
tail -n 2 "$log"
echo "linux-demo: done; removing the namespace and the tables"
