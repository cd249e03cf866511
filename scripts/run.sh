#!/usr/bin/env bash
# The main job: builds the simulated switch and runs it with the embedded default
# switch for about 20 seconds, showing live counters from a separate reader
# process, then stops it cleanly. Extra arguments go to vorn-sim (vorn-agent on the simulated platform).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
cmake --preset release >/dev/null
cmake --build --preset release -j "$(nproc)" --target vorn-sim vornctl
bin=build/release
ns="demo$$"
sock="/tmp/vorn-$ns.sock"
"$bin/agent/vorn-sim" -n "$ns" --duration 22 --status-interval 5 "$@" &
agent=$!
trap 'kill $agent 2>/dev/null || true' EXIT
# Wait for the agent's socket (it publishes right after start-up).
for _ in $(seq 50); do [ -S "$sock" ] && break; sleep 0.1; done
sleep 3
"$bin/tools/vornctl/vornctl" -n "$ns" watch --interval 2 --count 4 show interfaces counters rates Ethernet1
"$bin/tools/vornctl/vornctl" -n "$ns" clear counters Ethernet1
"$bin/tools/vornctl/vornctl" -n "$ns" show interfaces counters Ethernet1
sleep 2
"$bin/tools/vornctl/vornctl" -n "$ns" show interfaces counters Ethernet1
"$bin/tools/vornctl/vornctl" -n "$ns" show vlan counters 1
"$bin/tools/vornctl/vornctl" -n "$ns" show copp counters
wait $agent
trap - EXIT
# The tables stay after the agent stops, so readers can still look; remove this demo's.
rm -f /dev/shm/"$ns".* 2>/dev/null || true
echo "done: the agent ran for 22 s and stopped cleanly"
