#!/bin/bash
# The station: runs inside the sandbox and starts the bus, the simulated chip and the service.
# usage: station.sh BINARIES SHARED      SHARED holds the bus socket, the chip's control socket and the logs.
set -euo pipefail
binaries=$1
shared=$2

ln -s "$binaries/chp" /evse/app/bin/chp
cp "$shared/log.cfg" /evse/data/log.cfg
export DBUS_SYSTEM_BUS_ADDRESS=unix:path=$shared/bus
dbus-daemon --config-file="$(dirname "$0")/bus.conf" --address="$DBUS_SYSTEM_BUS_ADDRESS" --nofork --nopidfile &
"$binaries/efr32sim" --tty /dev/evse/tty_efr32 --reset /dev/evse/io_efr32_reset \
    --control "$shared/chip" </dev/null >"$shared/chip.log" 2>&1 &
until [ -S "$shared/bus" ] && [ -S "$shared/chip" ]; do sleep 0.05; done
exec "$binaries/BriscaService" >"$shared/service.log" 2>&1
