#!/usr/bin/env bash
# package_test.sh BUILD_DIR, inside tools/sandbox only: the host's two Debian packages, made
# from BUILD_DIR, installed with dpkg into a throw-away copy of this system (an overlay over
# / on a tmpfs, entered with chroot): enabled, started, restarted when the agent ends, then
# removed (the agent stops) and purged, leaving no file behind and none of the system changed.
set -euo pipefail
build=$1 src=$(cd "$(dirname "$0")/../.." && pwd) scratch=/tmp/package-test
fail() { echo "package_test: $*" >&2; exit 1; }
[ -n "${SIGNAGE_SANDBOX:-}" ] || fail "runs only inside tools/sandbox"
mount=$(PATH=/usr/bin:/bin type -P mount)  # the real one: the sandbox's stand-in only logs
mkdir -p "$scratch" && "$mount" -t tmpfs -o size=1g package-test "$scratch"
"$src/packaging/make-debs" "$build" "$(dpkg --print-architecture)" "$scratch/debs" > "$scratch/make-debs.log" 2>&1 ||
  { cat "$scratch/make-debs.log"; fail "the packages were not made"; }
root=$scratch/root
mkdir -p "$scratch/upper" "$scratch/work" "$root"
"$mount" -t overlay -o lowerdir=/,upperdir="$scratch/upper",workdir="$scratch/work" package-test-root "$root"
"$mount" -t proc proc "$root/proc"
"$mount" --rbind /dev "$root/dev"
"$mount" --rbind /mnt "$root/mnt"  # the sandbox's partitions, for the agent
for d in run tmp; do "$mount" -t tmpfs "package-test-$d" "$root/$d"; done
in_root() { chroot "$root" /usr/bin/env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin "$@"; }
logged() { local log=$scratch/$1.log; shift; in_root "$@" > "$log" 2>&1 || { cat "$log"; fail "$* failed"; }; }
printf '#!/bin/sh\nexit 0\n' > "$root/usr/sbin/policy-rc.d" && chmod 755 "$root/usr/sbin/policy-rc.d"  # may start
rm -f "$root/var/lib/man-db/auto-update"
[ ! -e "$root/run/systemd" ] || fail "the copy sees a running systemd"
own_files() {  # what the copy holds of its own, dpkg's and caches' records and coverage counts aside
  (cd "$scratch/upper" && find . ! -type d ! -path './var/lib/dpkg/*' ! -path './var/log/dpkg.log' \
     ! -path './var/cache/debconf/*' ! -path './var/cache/man/*' ! -name '*.gcda' | LC_ALL=C sort)
}
before=$(own_files)
cp "$scratch"/debs/*.deb "$root/tmp/"
logged install dpkg -i $(cd "$root" && echo tmp/*.deb | sed 's|tmp/|/tmp/|g')
agent_pids() { pgrep -x -f /usr/sbin/signage-agent || true; }
wait_for() { for _ in $(seq 150); do "$@" && return 0; sleep 0.1; done; return 1; }  # up to 15 s
another_than() { local p; p=$(agent_pids); [ -n "$p" ] && [ "$p" != "$1" ]; }
[ -L "$root/etc/systemd/system/multi-user.target.wants/signage-agent.service" ] &&
  compgen -G "$root/etc/rc2.d/S??signage-agent" > /dev/null || fail "not enabled for both init systems"
wait_for another_than none || fail "the agent was not started on install"
first=$(agent_pids)
tr '\0' '\n' < "/proc/$first/environ" | grep -q '^PATH=/usr/libexec/signage-agent:' ||
  fail "the agent's PATH does not put its own wget first"
kill "$first"
wait_for another_than "$first" || fail "the agent was not started again after it ended"
grep -q "signage-agent: ended with status" "$root/var/log/signage-agent.log" || fail "the agent's end is not logged"
verify=$(in_root systemd-analyze verify /lib/systemd/system/signage-agent.service 2>&1) && [ -z "$verify" ] ||
  fail "systemd-analyze verify: $verify"
in_root schedule-inspect /usr/share/doc/signage-agent-tools/examples/lobby-content.xml > /dev/null ||
  fail "schedule-inspect does not read the sample content document"
logged remove dpkg --remove signage-agent-tools signage-agent
wait_for sh -c '! pgrep -x -f /usr/sbin/signage-agent > /dev/null' || fail "the agent outlived the removal"
logged purge dpkg --purge signage-agent-tools signage-agent
after=$(own_files)
[ "$before" = "$after" ] || fail "the purge left the system changed (+ a file left, changed or deleted, - a file lost):
$(diff <(echo "$before") <(echo "$after") | grep '^[<>]' | sed 's/^>/+/; s/^</-/')"
echo "package_test: installed, ran, removed and purged $(cd "$scratch/debs" && echo *.deb)"
