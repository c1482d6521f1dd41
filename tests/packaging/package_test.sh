#!/usr/bin/env bash
# package_test.sh BUILD_DIR
# Makes the host's two Debian packages from BUILD_DIR (packaging/make-debs) and installs
# them with dpkg into a throw-away copy of this system: an overlay over / whose changes
# land on a tmpfs, seen only from this sandbox's mount namespace, entered with chroot.
# There the maintainer scripts enable the agent and start it through its init script;
# the test checks the service (running, restarted when the agent ends, its PATH), the
# unit (systemd-analyze verify) and the tools, then removes the packages (the agent
# stops) and purges them, and finds nothing of theirs left behind: no file, and no
# file of the system changed or deleted.
#
# It runs only inside tools/sandbox: the agent started here lives in the sandbox's
# namespaces, and no init system or systemd of the host is reachable from the copy.
set -euo pipefail
build=$1
src=$(cd "$(dirname "$0")/../.." && pwd)
fail() { echo "package_test: $*" >&2; exit 1; }
[ -n "${SIGNAGE_SANDBOX:-}" ] || fail "runs only inside tools/sandbox"
# The real mount: the sandbox's stand-in only logs what is not a remount.
mount=$(PATH=/usr/bin:/bin type -P mount)

scratch=/tmp/package-test
mkdir -p "$scratch"
"$mount" -t tmpfs -o size=1g package-test "$scratch"
packaging_log=$scratch/make-debs.log
"$src/packaging/make-debs" "$build" "$(dpkg --print-architecture)" "$scratch/debs" > "$packaging_log" 2>&1 ||
  { cat "$packaging_log"; fail "the packages were not made"; }

root=$scratch/root
mkdir -p "$scratch/upper" "$scratch/work" "$root"
"$mount" -t overlay -o lowerdir=/,upperdir="$scratch/upper",workdir="$scratch/work" package-test-root "$root"
"$mount" -t proc proc "$root/proc"
"$mount" --rbind /dev "$root/dev"
"$mount" --rbind /mnt "$root/mnt"   # the sandbox's partitions, for the agent
for d in run tmp; do "$mount" -t tmpfs "package-test-$d" "$root/$d"; done
in_root() { chroot "$root" /usr/bin/env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin "$@"; }

# This copy's own policy lets the maintainer scripts start the agent (a host's may
# forbid it), and no manual-page index is rebuilt.
printf '#!/bin/sh\nexit 0\n' > "$root/usr/sbin/policy-rc.d"
chmod 755 "$root/usr/sbin/policy-rc.d"
rm -f "$root/var/lib/man-db/auto-update"
[ ! -e "$root/run/systemd" ] || fail "the copy sees a running systemd"
# What this copy holds of its own before the packages come: dpkg's records and man's
# cache of pages shown aside, the same must be there after the purge, and nothing else.
# A coverage build's programs write their counts beside their objects, in the build tree.
own_files() {
  (cd "$scratch/upper" && find . ! -type d ! -path './var/lib/dpkg/*' ! -path './var/log/dpkg.log' \
     ! -path './var/cache/debconf/*' ! -path './var/cache/man/*' ! -name '*.gcda' | LC_ALL=C sort)
}
before=$(own_files)

cp "$scratch"/debs/*.deb "$root/tmp/"
in_root dpkg -i $(cd "$root" && echo tmp/*.deb | sed 's|tmp/|/tmp/|g') > "$scratch/install.log" 2>&1 ||
  { cat "$scratch/install.log"; fail "dpkg -i failed"; }

agent_pids() { pgrep -x -f /usr/sbin/signage-agent || true; }
wait_for() {  # wait_for COMMAND...: until it succeeds, for up to 15 s
  for _ in $(seq 150); do "$@" && return 0; sleep 0.1; done
  return 1
}
running() { [ -n "$(agent_pids)" ]; }
another_than() { local p; p=$(agent_pids); [ -n "$p" ] && [ "$p" != "$1" ]; }

# Installed, enabled for both init systems, and started.
[ -L "$root/etc/systemd/system/multi-user.target.wants/signage-agent.service" ] || fail "the unit is not enabled"
compgen -G "$root/etc/rc2.d/S??signage-agent" > /dev/null || fail "no boot link for the init script"
wait_for running || fail "the agent was not started on install: $(cat "$scratch/install.log")"
in_root /etc/init.d/signage-agent status > /dev/null || fail "the init script's status says not running"
first=$(agent_pids)
tr '\0' '\n' < "/proc/$first/environ" | grep -q '^PATH=/usr/libexec/signage-agent:' ||
  fail "the agent's PATH does not put its own wget first"

# Ended, it is started again (after 5 s) by the init script's loop, which logs it.
kill "$first"
wait_for another_than "$first" || fail "the agent was not started again after it ended"
grep -q "signage-agent: ended with status" "$root/var/log/signage-agent.log" ||
  fail "the agent's end is not in its log"

verify=$(in_root systemd-analyze verify /lib/systemd/system/signage-agent.service 2>&1) ||
  fail "systemd-analyze verify: $verify"
[ -z "$verify" ] || fail "systemd-analyze verify: $verify"
in_root schedule-inspect --help | grep -qi "usage" || fail "schedule-inspect --help"
in_root schedule-inspect /usr/share/doc/signage-agent-tools/examples/lobby-content.xml > /dev/null ||
  fail "schedule-inspect does not read the sample content document"

# Removed, the agent stops; purged, nothing of the packages is left.
in_root dpkg --remove signage-agent-tools signage-agent > "$scratch/remove.log" 2>&1 ||
  { cat "$scratch/remove.log"; fail "dpkg --remove failed"; }
wait_for sh -c '! pgrep -x -f /usr/sbin/signage-agent > /dev/null' || fail "the agent outlived the removal"
in_root dpkg --purge signage-agent-tools signage-agent > "$scratch/purge.log" 2>&1 ||
  { cat "$scratch/purge.log"; fail "dpkg --purge failed"; }
after=$(own_files)
[ "$before" = "$after" ] || fail "the purge left the system changed (+ a file left, changed or deleted (whiteout), - a file lost):
$(diff <(echo "$before") <(echo "$after") | grep '^[<>]' | sed 's/^>/+/; s/^</-/')"
echo "package_test: installed, ran, removed and purged $(cd "$scratch/debs" && echo *.deb)"
