#!/bin/bash
# The station: runs inside the sandbox and starts the bus, the simulated chip and the service.
# usage: station.sh BINARIES SHARED      SHARED holds the bus socket, the chip's control socket and the logs.
set -euo pipefail
binaries=$1
shared=$2
readonly kServiceUser=nobody # as on a station, the service has no privileges

ln -s "$shared/chp" /evse/app/bin/chp
cp "$shared/log.cfg" /evse/data/log.cfg
export DBUS_SYSTEM_BUS_ADDRESS=unix:path=$shared/bus
sed "s|@LISTEN@|$DBUS_SYSTEM_BUS_ADDRESS|" "$(dirname "$0")/bus.conf" >/tmp/bus.conf
dbus-daemon --config-file=/tmp/bus.conf --nofork --nopidfile 2>"$shared/bus.log" &
"$binaries/efr32sim" --tty /dev/evse/tty_efr32 --reset /dev/evse/io_efr32_reset \
    --control "$shared/chip" --pace </dev/null >"$shared/chip.log" 2>&1 &
until [ -S "$shared/bus" ] && [ -S "$shared/chip" ]; do sleep 0.05; done

# In systemd's place, which shows what the service tells about itself.
export NOTIFY_SOCKET=/tmp/notify
"$binaries/unit-stand-in" "$NOTIFY_SOCKET" &
until [ -S "$NOTIFY_SOCKET" ]; do sleep 0.05; done
chmod 666 "$NOTIFY_SOCKET"

as_service=()
if [ "$(id -u)" -eq 0 ]; then
    # What the udev rule does on a station.
    chown "$kServiceUser" "$(realpath /dev/evse/tty_efr32)" /dev/evse/io_efr32_reset
    as_service=(setpriv "--reuid=$kServiceUser" --regid=nogroup --clear-groups --no-new-privs)
fi
"${as_service[@]}" "$binaries/BriscaService" >"$shared/service.log" 2>&1 &
service=$!
mkfifo "$shared/stop"
(read -r _ <"$shared/stop" && kill -TERM "$service") &
status=0
wait "$service" || status=$?
echo "$status" >"$shared/status"
