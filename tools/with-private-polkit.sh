#!/usr/bin/env bash
# Runs a command with a polkitd of its own on a private system bus, the owner check's test actions
# installed; DBUS_SYSTEM_BUS_ADDRESS points the command there. The machine's own bus and polkitd, if
# any, are left alone. As root: polkitd reads actions only from /usr/share/polkit-1/actions, where the
# test files (app.nuvrel.test-*.policy, no real action's name) stay for the length of the run.
#   tools/with-private-polkit.sh env NUVREL_POLKIT_TEST=1 build/default/tests/platform/system/platform_tests
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
polkitd=/usr/lib/polkit-1/polkitd
actions=/usr/share/polkit-1/actions

fail() { echo "with-private-polkit: $*" >&2; exit 2; }
[ $# -gt 0 ] || fail "usage: $0 COMMAND [ARGUMENT...]"
[ "$(id -u)" -eq 0 ] || fail "needs root: polkitd reads actions only from $actions"
[ -x "$polkitd" ] || fail "$polkitd missing (Debian: polkitd)"
for program in dbus-daemon dbus-send; do
  command -v "$program" >/dev/null || fail "$program missing (Debian: dbus)"
done

work=$(mktemp -d)
# polkitd drops to its own account, and the tests run some checks as nobody: both connect here.
chmod 755 "$work"
bus_pid=""
polkitd_pid=""
installed=()
# shellcheck disable=SC2317 # run by the trap
stop() {
  for pid in "$polkitd_pid" "$bus_pid"; do
    [ -n "$pid" ] || continue
    kill "$pid" 2>/dev/null || true
    wait "$pid" 2>/dev/null || true
  done
  [ ${#installed[@]} -eq 0 ] || rm -f "${installed[@]}"
  rm -rf "$work"
}
trap stop EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

# A system bus in all but name: anyone may connect, send and own names, as no real one allows.
socket="$work/system_bus_socket"
cat >"$work/bus.conf" <<EOF
<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>system</type>
  <listen>unix:path=$socket</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <allow own="*"/>
    <allow send_destination="*"/>
    <allow receive_sender="*"/>
  </policy>
</busconfig>
EOF
dbus-daemon --config-file="$work/bus.conf" --nofork --nopidfile >"$work/bus.log" 2>&1 &
bus_pid=$!
for _ in $(seq 200); do
  [ -S "$socket" ] && break
  kill -0 "$bus_pid" 2>/dev/null || { cat "$work/bus.log" >&2; fail "dbus-daemon did not start"; }
  sleep 0.05
done
[ -S "$socket" ] || fail "dbus-daemon opened no socket"
export DBUS_SYSTEM_BUS_ADDRESS="unix:path=$socket"

# Installed before polkitd starts, so that its first reading has them.
install_action() {
  case "$2" in
  app.nuvrel.test-*.policy) ;;
  *) fail "$2: test actions are named app.nuvrel.test-*.policy, so as to replace no real one" ;;
  esac
  installed+=("$actions/$2")
  install -m 644 "$1" "$actions/$2"
}
for file in "$root"/tests/platform/system/polkit/*.policy; do
  install_action "$file" "$(basename "$file")"
done
# The shipped file as it is, under a name of the tests: an installed Nuvrel's stays in place.
install_action "$root/data/polkit/app.nuvrel.vault.policy" app.nuvrel.test-shipped-vault.policy

"$polkitd" --no-debug >"$work/polkitd.log" 2>&1 &
polkitd_pid=$!
owned=no
for _ in $(seq 200); do
  if dbus-send --system --print-reply --dest=org.freedesktop.DBus /org/freedesktop/DBus \
       org.freedesktop.DBus.NameHasOwner string:org.freedesktop.PolicyKit1 2>/dev/null | grep -q 'boolean true'; then
    owned=yes
    break
  fi
  kill -0 "$polkitd_pid" 2>/dev/null || break
  sleep 0.05
done
if [ "$owned" != yes ]; then
  cat "$work/polkitd.log" >&2
  fail "polkitd did not take org.freedesktop.PolicyKit1 on the private bus"
fi

status=0
"$@" || status=$?
exit $status
