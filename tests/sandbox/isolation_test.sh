#!/usr/bin/env bash
# Files written under /mnt, /tmp and /dev/shm, queues made and reboots inside the sandbox
# are invisible to the host; reboot only writes a line to the stand-in log; /mnt/hd4
# starts read-only; the command's exit status is the sandbox's.
set -euo pipefail
sandbox=$1 token="isolation-$$-$RANDOM"
fail() { echo "FAIL: $*" >&2; exit 1; }
out=$("$sandbox" -- bash -c "
  touch /tmp/$token /mnt/hd1/$token /mnt/usb/$token /dev/shm/$token
  mount -o remount,noatime,nodiratime,rw /dev/ide/host0/bus0/target0/lun0/part4 /mnt/hd4
  touch /mnt/hd4/video/$token && ipcmk -Q >/dev/null && reboot
  echo \"queue-key \$(ipcs -q | awk 'NR>3 && \$1 ~ /^0x/ {print \$1}')\"
  [ \"\$(cat /proc/1/comm)\" = bash ] || echo 'not in a pid namespace'
  ip -o link | grep -qv ' lo:' && echo 'network not private' || true
  cat \$SANDBOX_LOG
")
grep -qx 'reboot' <<<"$out" || fail "reboot not logged: $out"
! grep -q 'not ' <<<"$out" || fail "$out"
for f in /tmp/$token /mnt/hd1/$token /mnt/usb/$token /mnt/hd4/video/$token /dev/shm/$token; do
  [ ! -e "$f" ] || fail "$f leaked to the host"
done
key=$(awk '/^queue-key /{print $2}' <<<"$out")
[ -n "$key" ] || fail "no queue was created inside: $out"
! ipcs -q | awk '{print $1}' | grep -qix "$key" || fail "message queue leaked to the host"
! "$sandbox" -- bash -c 'touch /mnt/hd4/video/x' 2>/dev/null || fail "/mnt/hd4 should start read-only"
"$sandbox" -- bash -c 'exit 7' && rc=0 || rc=$?
[ $rc -eq 7 ] || fail "exit status not passed through"
echo "isolation: ok"
