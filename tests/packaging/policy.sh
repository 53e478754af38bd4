#!/bin/bash
# The bus policy as a real dbus-daemon applies it: the service's user owns the name, root and the members of
# one group may call, everybody else is refused. The service runs unprivileged, as on a station.
# usage: policy.sh SERVICE-BINARY
set -euo pipefail
[ "$(id -u)" -eq 0 ] || { echo "needs root to act as several users"; exit 77; }
here=$(cd "$(dirname "$0")" && pwd)
readonly kBrisca=4001 kMember=4002 kStranger=4003

if [ "${2:-}" != inside ]; then
    work=$(mktemp -d)
    trap 'rm -rf "$work"' EXIT
    { cat /etc/passwd; echo "brisca:x:$kBrisca:$kBrisca::/:/bin/sh"
      echo "member:x:$kMember:$kMember::/:/bin/sh"; echo "stranger:x:$kStranger:$kStranger::/:/bin/sh"; } >"$work/passwd"
    { cat /etc/group; echo "brisca:x:$kBrisca:"; echo "member:x:$kMember:"; echo "stranger:x:$kStranger:"
      echo "brisca-clients:x:4004:member"; } >"$work/group"
    export BRISCA_SANDBOX_ARGUMENTS="--ro-bind $work/passwd /etc/passwd --ro-bind $work/group /etc/group"
    "$here/../support/sandbox.sh" "$here/policy.sh" "$(realpath "$1")" inside
    exit
fi

cat >/tmp/bus.conf <<CONF
<busconfig>
  <type>system</type>
  <listen>unix:path=/tmp/bus</listen>
  <auth>EXTERNAL</auth>
  <!-- The defaults of a system bus. -->
  <policy context="default">
    <allow user="*"/>
    <deny own="*"/>
    <deny send_type="method_call"/>
    <allow send_type="signal"/>
    <allow send_requested_reply="true" send_type="method_return"/>
    <allow send_requested_reply="true" send_type="error"/>
    <allow receive_type="method_call"/>
    <allow receive_type="method_return"/>
    <allow receive_type="error"/>
    <allow receive_type="signal"/>
    <allow send_destination="org.freedesktop.DBus"/>
  </policy>
  <include>$here/../../packaging/org.voltra.brisca.conf</include>
</busconfig>
CONF
export DBUS_SYSTEM_BUS_ADDRESS=unix:path=/tmp/bus
dbus-daemon --config-file=/tmp/bus.conf --nofork --nopidfile &
until [ -S /tmp/bus ]; do sleep 0.05; done

as() { setpriv --reuid="$1" --regid="$1" --init-groups "${@:2}"; }
failures=0
expect() { # expect WHAT PATTERN COMMAND...
    local what=$1 pattern=$2 output
    shift 2
    output=$("$@" 2>&1) || true
    if [[ $output =~ $pattern ]]; then
        echo "ok: $what"
    else
        echo "FAILED: $what: $output"
        failures=$((failures + 1))
    fi
}
readonly call="busctl --system call org.voltra.brisca / brisca.service getBriscaState"
readonly own="busctl --system call org.freedesktop.DBus /org/freedesktop/DBus org.freedesktop.DBus \
RequestName su org.voltra.brisca 0"

# shellcheck disable=SC2086
{
    expect "a stranger may not own the name" "denied|not allowed" as $kStranger $own
    expect "a member of the calling group may not own the name" "denied|not allowed" as $kMember $own
    as $kBrisca "$1" >/tmp/service.log 2>&1 &
    service=$!
    until busctl --system list --acquired 2>/dev/null | grep -q org.voltra.brisca; do sleep 0.05; done
    expect "root may call" "^i [0-4]$" $call
    expect "a member of the calling group may call" "^i [0-4]$" as $kMember $call
    expect "a member of the calling group may introspect" "getBriscaState" \
        as $kMember busctl --system introspect org.voltra.brisca / brisca.service
    expect "a stranger may not call" "denied|not allowed" as $kStranger $call
    kill "$service" 2>/dev/null || true
}
[ "$failures" -eq 0 ]
