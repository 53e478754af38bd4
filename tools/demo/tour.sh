#!/bin/bash
# Plays the demo: an operator on the bus and a phone on the air use a station in its sandbox.
# usage: tour.sh BINARIES [--stay]
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
binaries=$(cd "$1" && pwd)
stay=${2:-}
logs=$(dirname "$binaries")/logs
readonly kImageSize=150000 kPatience=30

shared=$(mktemp -d /tmp/brisca-demo.XXXXXX)
chmod 755 "$shared"
cp "$binaries/chp" "$shared/chp"
export DBUS_SYSTEM_BUS_ADDRESS=unix:path=$shared/bus
failures=0

bold() {
    printf '\n\033[1m%s\033[0m\n' "$*"
    [ ! -t 1 ] || sleep 1 # for whoever watches
}
note() { printf '   %.96s\n' "$*"; } # no more than a terminal's line
phone() { "$binaries/brisca-phone" "$shared/chip" "$@"; }
operator() { "$binaries/briscactl" "$@"; }
firmware_version() { operator firmware | grep -m 1 .; }

finish() {
    if kill -0 "$station" 2>/dev/null && [ -p "$shared/stop" ]; then
        exec {stop}<>"$shared/stop" # both ways: never waits for a reader, and keeps the word for one
        echo >&"$stop"
    fi
    wait "$station" 2>/dev/null || true
    [ -z "${monitor:-}" ] || kill "$monitor" 2>/dev/null || true
}
# The logs stay with the build; nothing else does.
clean_up() {
    trap '' HUP INT TERM # a terminal that goes away tells it twice
    finish
    mkdir -p "$logs"
    cp "$shared"/*.log "$shared/signals" "$logs" 2>/dev/null || true
    rm -rf "$shared"
}
trap clean_up EXIT

check() { # check WHAT COMMAND...: one line of the summary
    local what=$1
    shift
    if "$@"; then
        printf '   \033[32mok\033[0m      %s\n' "$what"
    else
        printf '   \033[31mFAILED\033[0m  %s\n' "$what"
        failures=$((failures + 1))
    fi
}
within() { # within COMMAND...: true as soon as the command is, for a while
    local end=$((SECONDS + kPatience))
    until "$@" >/dev/null 2>&1; do
        [ "$SECONDS" -lt "$end" ] || return 1
        sleep 0.1
    done
}
in_state() { operator status | grep -q "^state: *$1"; }
signalled() { [ "$(grep -c "$1" "$shared/signals")" -ge "${2:-1}" ]; }
on_air() { phone scan | grep -q "name=\"\?$1"; }
answers() { # answers START COMMAND...: shows the output, whose start is checked
    local output
    output=$("${@:2}" 2>&1) || true
    note "$output"
    [[ $output == "$1"* ]]
}

same_image() {
    phone image "$shared/stored" >/dev/null
    cmp -n "$kImageSize" "$shared/firmware" "$shared/stored"
}

cat >"$shared/log.cfg" <<CFG
GLOBAL : NOTICE
BriscaService : DEBUG
CFG
BRISCA_SANDBOX_BIND=$shared "$here/../../tests/support/sandbox.sh" "$here/station.sh" "$binaries" "$shared" &
station=$!

bold "The station starts: it resets the chip and waits for its bootloader"
check "the service is in BOOTLOADER" within in_state BOOTLOADER
"$binaries/briscactl" monitor >"$shared/signals" &
monitor=$!
within signalled "on the bus"

if [ "$stay" = --stay ]; then
    check "the station is on the air" answers FIRMWARE operator start
    cat <<TEXT

The station runs. In another terminal:

  export DBUS_SYSTEM_BUS_ADDRESS=$DBUS_SYSTEM_BUS_ADDRESS
  export PATH=$binaries:\$PATH
  briscactl status                  what the station does
  briscactl monitor                 what happens
  briscactl --help                  everything an operator can do
  busctl --system introspect org.voltra.brisca / brisca.service

  phone() { $binaries/brisca-phone $shared/chip "\$@"; }
  phone scan                        what is on the air
  phone connect 5000                the phone connects
  phone get status                  a CoAP request, answered by the application
  phone put limit 20
  phone disconnect
  phone help                        everything the simulated chip and phone can do

  tail -f $shared/service.log       the service's log
  tail -f $shared/chip.log          what the chip sees

Your own application: put it in place of $shared/chp and restart with
  briscactl restart

Ctrl-C ends the station.
TEXT
    wait "$station"
    exit
fi

bold "An operator asks for the chip's firmware"
check "the chip's information text is read" answers EFR32 firmware_version

bold "The operator updates the firmware from a file of $kImageSize bytes"
head -c "$kImageSize" /dev/urandom >"$shared/firmware"
chmod 644 "$shared/firmware"
check "briscactl tells the success" operator update "$shared/firmware"
check "fwUpdateComplete is signalled" within signalled "fwUpdateComplete true"
check "the chip holds the file byte by byte" same_image

bold "The operator starts the firmware; the station goes on the air"
check "the service is in FIRMWARE" answers FIRMWARE operator start
check "bleIsStarted is signalled" within signalled bleIsStarted
check "the MAC address is known" answers 0 operator mac
operator status | sed 's/^/   /'

bold "A phone discovers the station, connects and asks the application"
check "the phone finds \"Voltra\"" within on_air Voltra
note "$(phone scan)"
check "the phone connects" answers ok phone connect 5000
phone subscribe on >/dev/null
check "btDeviceConnected is signalled" within signalled btDeviceConnected
check "GET status" answers 2.05 phone get status
check "PUT limit 20" answers 2.04 phone put limit 20
check "GET limit" answers "2.05 Content  20" phone get limit
check "POST echo" answers "2.04 Changed  hello station" phone post echo "hello station"
check "GET blob?2000, an answer of many fragments" answers "2.05 Content  abc" phone get "blob?2000"
check "GET nowhere" answers 4.04 phone get nowhere

bold "The operator disables Bluetooth and renames the station"
check "the service is in DISABLED" answers DISABLED operator disable
check "a restart leads to BOOTLOADER" answers BOOTLOADER operator restart
check "the name is taken" answers Garage operator name "Garage left"
check "the service is in FIRMWARE" answers FIRMWARE operator start
check "the phone finds \"Garage left\"" within on_air "Garage left"
note "$(phone scan)"

bold "Disabled and enabled again, the station serves the phone as before"
check "the service is in DISABLED" answers DISABLED operator disable
check "the service is in FIRMWARE" answers FIRMWARE operator enable
check "the phone connects" within phone connect 1000
phone subscribe on >/dev/null
check "GET status" answers 2.05 phone get status
phone disconnect >/dev/null
check "btDeviceDisconnected is signalled" within signalled btDeviceDisconnected

bold "The station is told to stop"
finish
check "the service ended with status 0" [ "$(cat "$shared/status" 2>/dev/null)" = 0 ]

if [ "$failures" -eq 0 ]; then
    bold "Everything worked. Logs: ${logs#"$PWD"/}"
else
    bold "$failures steps FAILED. Logs: ${logs#"$PWD"/}"
    exit 1
fi
