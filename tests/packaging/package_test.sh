#!/usr/bin/env bash
# package_test.sh BUILD_DIR HOST_BUILD(ON|OFF)
# Makes the build's Debian package, unpacks it into a scratch root with dpkg -x and
# checks what an operator gets: exactly the agent and its service files, plus in a host
# build the host tools with wget-compat as a wget for the agent alone; the declared
# dependencies; the init script, run against a stand-in agent, starts it under its loop,
# starts it again when it ends, and stops it with everything it started.
set -euo pipefail
build=$1 host_build=$2
scratch=$build/package-test
rm -rf "$scratch"
mkdir -p "$scratch"
trap 'rm -rf "$scratch"' EXIT
fail() { echo "package_test: $*" >&2; exit 1; }

cpack --config "$build/CPackConfig.cmake" -B "$scratch/out" > "$scratch/cpack.log" 2>&1 ||
  { cat "$scratch/cpack.log"; fail "cpack failed"; }
debs=("$scratch"/out/*.deb)
[ ${#debs[@]} -eq 1 ] || fail "one package expected, got ${debs[*]}"
deb=${debs[0]}

# The control fields.
field() { dpkg-deb -f "$deb" "$1"; }
[ "$(field Package)" = signage-agent ] || fail "package name $(field Package)"
case $host_build in
  ON) arch=$(dpkg --print-architecture) ;;
  *) arch=armhf ;;
esac
[ "$(field Architecture)" = "$arch" ] || fail "architecture $(field Architecture), not $arch"
[ "$(basename "$deb")" = "signage-agent_$(field Version)_$arch.deb" ] || fail "file name $(basename "$deb")"
depends=$(field Depends)
needed=(libc6 libstdc++6 libgcc-s1 psmisc)
if [ "$host_build" = ON ]; then needed+=(libcurl4); fi
for d in "${needed[@]}"; do
  [[ ", $depends," == *", $d "* || ", $depends," == *", $d,"* ]] || fail "Depends lacks $d: $depends"
done
[ "$(dpkg-deb -I "$deb" conffiles)" = /etc/init.d/signage-agent ] || fail "conffiles: $(dpkg-deb -I "$deb" conffiles)"

# Exactly these files, in these places.
root=$scratch/root
dpkg -x "$deb" "$root"
expected=(
  ./etc/init.d/signage-agent
  ./usr/lib/systemd/system/signage-agent.service
  ./usr/sbin/signage-agent
  ./usr/share/doc/signage-agent/README.md
  ./usr/share/doc/signage-agent/docs/behaviour.md
  ./usr/share/doc/signage-agent/docs/how-it-works.md
  ./usr/share/doc/signage-agent/docs/testing.md
)
if [ "$host_build" = ON ]; then
  expected+=(./usr/bin/cms-sim ./usr/bin/player-sim ./usr/bin/schedule-inspect
             ./usr/libexec/signage-agent/wget)
fi
got=$(cd "$root" && find . ! -type d | LC_ALL=C sort)
want=$(printf '%s\n' "${expected[@]}" | LC_ALL=C sort)
[ "$got" = "$want" ] || fail "files differ from the expected layout:
$(diff <(echo "$want") <(echo "$got") || true)"
for f in ./etc/init.d/signage-agent ./usr/sbin/signage-agent ./usr/bin/* ./usr/libexec/signage-agent/*; do
  [ ! -e "$root/$f" ] || [ -x "$root/$f" ] || fail "$f is not executable"
done
if [ "$host_build" = ON ]; then
  "$root/usr/libexec/signage-agent/wget" --help | grep -q "^usage:" || fail "the installed wget is not wget-compat"
else
  readelf -h "$root/usr/sbin/signage-agent" | grep -q "Machine:.*ARM" || fail "the agent is not an ARM program"
fi

unit=$root/usr/lib/systemd/system/signage-agent.service
for line in ExecStart=/usr/sbin/signage-agent Restart=on-failure StandardOutput=journal \
            "Environment=PATH=/usr/libexec/signage-agent:" WantedBy=multi-user.target; do
  grep -q "^$line" "$unit" || fail "the unit lacks $line"
done

# The init script, with a stand-in for the agent and its output to a file.
init=$scratch/init
stand_in=$scratch/agent
cat > "$stand_in" <<STANDIN
#!/bin/sh
echo "agent \$\$ started with PATH=\$PATH"
echo \$\$ >> "$scratch/started"
exec sleep 600
STANDIN
chmod 755 "$stand_in"
sed -e "s|^DAEMON=.*|DAEMON=$stand_in|" -e "s|^PIDFILE=.*|PIDFILE=$scratch/pid|" \
    -e "s|^RESTART_DELAY=.*|RESTART_DELAY=0|" -e "s|^LOGGER=.*|LOGGER=|" \
    -e "s|^LOGFILE=.*|LOGFILE=$scratch/log|" "$root/etc/init.d/signage-agent" > "$init"
sh -n "$init" || fail "the init script is no valid sh"

started() {  # started N: the stand-in was started at least N times
  [ -r "$scratch/started" ] && [ "$(wc -l < "$scratch/started")" -ge "$1" ]
}
wait_for() {  # wait_for COMMAND...: until it succeeds, for up to 10 s
  for _ in $(seq 100); do "$@" && return 0; sleep 0.1; done
  return 1
}
sh "$init" status > /dev/null && fail "status says running before start"
sh "$init" start > /dev/null || fail "start failed"
wait_for started 1 || fail "the agent was not started"
sh "$init" status > /dev/null || fail "status does not say running"
first=$(head -n 1 "$scratch/started")
kill "$first"
wait_for started 2 || fail "the agent was not started again after it ended"
second=$(tail -n 1 "$scratch/started")
sh "$init" stop > /dev/null || fail "stop failed"
wait_for sh -c "! kill -0 $second 2>/dev/null" || fail "the agent outlived stop"
sh "$init" status > /dev/null && fail "status says running after stop"
grep -q "^agent $first started with PATH=/usr/libexec/signage-agent:" "$scratch/log" ||
  fail "the agent's output is not in the log: $(cat "$scratch/log")"
grep -q "ended with status" "$scratch/log" || fail "the restart is not in the log"
echo "package_test: $(basename "$deb") is as expected"
