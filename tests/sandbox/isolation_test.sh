#!/usr/bin/env bash
# Files written under /mnt, /tmp and /dev/shm, queues created and reboots inside the
# sandbox are invisible to the host; reboot only writes a line to the stand-in log.
set -euo pipefail
sandbox=$1
token="isolation-$$-$RANDOM"
fail() { echo "FAIL: $*" >&2; exit 1; }

out=$("$sandbox" -- bash -c "
  set -e
  touch /tmp/$token /mnt/hd1/$token /mnt/usb/$token /dev/shm/$token
  mount -o remount,noatime,nodiratime,rw /dev/ide/host0/bus0/target0/lun0/part4 /mnt/hd4
  touch /mnt/hd4/video/$token
  ipcmk -Q >/dev/null
  echo \"queue-key \$(ipcs -q | awk 'NR>3 && \$1 ~ /^0x/ {print \$1}')\"
  reboot
  killall -9 wget 2>/dev/null || true
  [ \"\$(cat /proc/1/comm)\" = bash ] || echo 'not in a pid namespace'
  ip -o link | grep -qv ' lo:' && echo 'network not private' || true
  cat \$SANDBOX_LOG
")

grep -qx 'reboot' <<<"$out" || fail "reboot not logged: $out"
grep -q 'not in' <<<"$out" && fail "$out"
grep -q 'not private' <<<"$out" && fail "$out"
for f in /tmp/$token /mnt/hd1/$token /mnt/usb/$token /mnt/hd4/video/$token /dev/shm/$token; do
  [ ! -e "$f" ] || fail "$f leaked to the host"
done
key=$(awk '/^queue-key /{print $2}' <<<"$out")
[ -n "$key" ] || fail "no queue was created inside: $out"
if ipcs -q | awk '{print $1}' | grep -qix "$key"; then
  fail "message queue leaked to the host"
fi

# A write to a read-only partition fails inside, as on the device.
if "$sandbox" -- bash -c 'touch /mnt/hd4/video/x' 2>/dev/null; then
  fail "/mnt/hd4 should start read-only"
fi
# The exit status of the command is the sandbox's.
set +e
"$sandbox" -- bash -c 'exit 7'
[ $? -eq 7 ] || fail "exit status not passed through"
echo "isolation: ok"
