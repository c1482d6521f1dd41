#!/usr/bin/env bash
# The agent starts in the sandbox beside player-sim, reads the MAC address, answers a USB
# configuration update sent from player-sim's command line, and is still running, without
# a sanitizer report, after a few seconds of ticking.
set -uo pipefail
out=$("$1" --wget "$4" -- bash -c '
  agent=$1 sim=$2 log=/tmp/player-sim.log
  wait_for() {  # up to 5 s for a line of the player-sim log holding $1
    for _ in $(seq 100); do grep -qF -- "$1" "$log" 2>/dev/null && return 0; sleep 0.05; done
    echo "FAIL: player-sim never logged: $1"; exit 1
  }
  "$sim" --log "$log" --mac 00:11:22:AA:BB:0C &  # ended with the sandbox
  wait_for " start pid="
  timeout 4 "$agent" > /tmp/agent.out 2>&1 &
  agent_pid=$!
  wait_for "text=\"1.3.6.1.4.1.58321.3.1.8.0\""
  "$sim" --notify conf-update || exit 1
  wait_for "recv key=1240 type=30 len=64 cmmd=93 name=USB_CONF_DONE"
  wait $agent_pid
  status=$?
  cat /tmp/agent.out
  [ $status -eq 124 ] || { echo "FAIL: signage-agent ended early with status $status"; exit 1; }
' smoke "$2" "$3" 2>&1)
if [ $? -ne 0 ] || grep -qE "runtime error|AddressSanitizer|LeakSanitizer|ThreadSanitizer" <<<"$out"; then
  echo "FAIL: agent smoke test" >&2; echo "$out" >&2; exit 1
fi
echo "agent smoke: ok"
