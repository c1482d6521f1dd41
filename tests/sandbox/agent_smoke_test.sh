#!/usr/bin/env bash
# The agent starts in the sandbox and is still running, without a sanitizer report,
# after a few seconds of ticking.
set -uo pipefail
sandbox=$1 agent=$2
out=$("$sandbox" -- timeout 4 "$agent" 2>&1)
status=$?
if [ $status -ne 124 ]; then
  echo "FAIL: signage-agent ended early with status $status" >&2
  echo "$out" >&2
  exit 1
fi
echo "agent smoke: ok"
