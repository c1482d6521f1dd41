#!/usr/bin/env bash
# The agent starts in the sandbox beside player-sim, reads the MAC address at start-up,
# answers a USB configuration update sent from player-sim's command line, and is still
# running, without a sanitizer report, after a few seconds of ticking.
set -uo pipefail
sandbox=$1 agent=$2 sim=$3 wget=$4
out=$("$sandbox" --wget "$wget" -- bash -c '
  agent=$1 sim=$2
  log=/tmp/player-sim.log
  wait_for() {  # wait_for TEXT: up to 5 s for a line of the player-sim log holding TEXT
    for _ in $(seq 100); do grep -qF -- "$1" "$log" 2>/dev/null && return 0; sleep 0.05; done
    echo "FAIL: player-sim never logged: $1"; return 1
  }
  "$sim" --log "$log" --mac 00:11:22:AA:BB:0C &
  sim_pid=$!
  wait_for " start pid=" || exit 1
  timeout 4 "$agent" > /tmp/agent.out 2>&1 &
  agent_pid=$!
  wait_for "text=\"1.3.6.1.4.1.58321.3.1.8.0\"" || exit 1
  "$sim" --notify conf-update || exit 1
  wait_for "recv key=1240 type=30 len=64 cmmd=93 name=USB_CONF_DONE" || exit 1
  wait $agent_pid
  status=$?
  kill $sim_pid
  cat /tmp/agent.out
  if [ $status -ne 124 ]; then echo "FAIL: signage-agent ended early with status $status"; exit 1; fi
' smoke "$agent" "$sim" 2>&1)
status=$?
if [ $status -ne 0 ] || grep -qE "runtime error|AddressSanitizer|LeakSanitizer|ThreadSanitizer" <<<"$out"; then
  echo "FAIL: agent smoke test" >&2
  echo "$out" >&2
  exit 1
fi
echo "agent smoke: ok"
