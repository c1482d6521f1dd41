#!/usr/bin/env bash
# tools/demo for three device minutes on this build: the agent takes the player from its
# first boot to the default playlist, says why, downloads every file of the sample
# content at its size, and leaves nothing running.
set -uo pipefail
demo=$1 build=$2
logs=$build/demo-test
out=$(DEMO_BUILD=$build DEMO_LOGS=$logs DEMO_DEVICE_MINUTES=3 DEMO_SPEED=10 "$demo" 2>&1)
status=$?
fail() { echo "FAIL: $*" >&2; echo "$out" >&2; exit 1; }
[ $status -eq 0 ] || fail "tools/demo ended with status $status"
for line in \
  'call home command list command.txt (117 bytes):' \
  'started   layer 0 (video), slot r0: playlist 0 "Welcome loop", full screen' \
  'why: nothing in the schedule has started yet today, so the defaults apply' \
  'saved     the content document as /mnt/hd3/contentdata.txt' \
  'media on disk   5 of the content'"'"'s 5 files, each at its size' \
  'nothing left running in the sandbox'; do
  grep -qF -- "$line" <<<"$out" || fail "no line: $line"
done
grep -qE '^first_playlist_device_seconds=[0-9]+$' "$logs/summary.txt" || fail "summary.txt: $(cat "$logs/summary.txt")"
grep -qE '^vmhwm_kb=[0-9]+$' "$logs/summary.txt" || fail "summary.txt: $(cat "$logs/summary.txt")"
echo "demo: ok ($(grep first_playlist "$logs/summary.txt"))"
