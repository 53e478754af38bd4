#!/bin/bash
# The service on emulated stations: each a whole Cortex-A7 with Debian for armhf, its own kernel, systemd, bus and
# udev. Installs the armhf package there and ends with a table of what was tried and of figures; root only.
# usage: scripts/board.sh [--stay] [PART...]     every part when none is named
#   cases   the cases of tests/station, on a simulated chip inside
#   line    the chip on a real tty (a USB serial line that is unplugged and plugged in), a boot, figures
#   unit    all unit tests
# The cases have a station of their own, at the same time. --stay: leaves the others' running, says how to get in.
# Disk and kernel are made once, in two to three minutes, and kept in brisca-service/armhf/board in
# $XDG_CACHE_HOME (~/.cache); each run starts from them unchanged. Times are those of an emulation.
set -euo pipefail
. "$(dirname "$0")/support/usage.bash"
cd "$(dirname "$0")/.."

stay=
parts=()
while [ $# -gt 0 ]; do
    case $1 in
        --stay) stay=yes ;;
        cases | line | unit) parts+=("$1") ;;
        *) refuse ;;
    esac
    shift
done
[ ${#parts[@]} -gt 0 ] || parts=(cases line unit)
. scripts/support/armhf.bash
. scripts/support/board-image.bash

readonly kBootSeconds=900 kFigureSeconds=30
work=$(mktemp -d)
pids=()
finish() {
    kill "${pids[@]}" 2>/dev/null || true
    wait
    rm -rf "$work"
}
trap finish EXIT

row() { printf '%-62s %s\n' "$1" "$2" | tee -a "$station/table"; } # row WHAT RESULT
on_board() { ssh -F "$station/ssh" board "$@"; }
chip() { build/release/bin/brisca-phone "$work/control" "$@"; }
monitor() { echo "$*" | socat - "UNIX:$station/monitor" >/dev/null; }
call() { on_board busctl --system --timeout=60 call org.voltra.brisca / brisca.service "$@"; }
within() { # within SECONDS COMMAND...: it succeeds before that time is over
    local end=$((SECONDS + $1))
    until "${@:2}" >/dev/null 2>&1; do
        [ $SECONDS -lt $end ] || return 1
        sleep 0.5
    done
}
in_state() { [ "$(call getBriscaState)" = "i $1" ]; }
wanted() { [[ " ${parts[*]} " == *" $1 "* ]]; }
try() { # try WHAT COMMAND...: a row of the table
    local since=$SECONDS result=ok
    "${@:2}" || result=FAILED
    row "$1" "$result, $((SECONDS - since)) s"
}

build() {
    scripts/setup.sh board
    scripts/package.sh --arch armhf
    local targets=(efr32sim_program brisca-phone chp)
    ! wanted unit || targets=(all)
    cmake --build --preset armhf --target "${targets[@]}"
    cmake --preset release >/dev/null
    cmake --build --preset release --target efr32sim_program brisca-phone
    is_current "$image" "${image_sources[@]}" || make_image
}

# The project at the path that its build knows, without what only the compiler needs.
make_tests_disk() {
    mkdir "$work/tests"
    { git ls-files; find build/armhf -type f ! -name '*.[oa]' ! -name '*.ddeb' ! -path '*/_CPack_Packages/*' ! -path '*_autogen/*'; } |
        tar -c -T - | tar -x -C "$work/tests"
    find "$work/tests/build" -type f -perm -100 -size +50k -exec "$triple-strip" --strip-debug {} + 2>/dev/null || true
    truncate -s 600M "$work/tests.ext4"
    mke2fs -q -t ext4 -L tests -d "$work/tests" "$work/tests.ext4"
    rm -rf "$work/tests"
}

start_chip() { # outside, at this machine's own speed; speed and flow control do not travel over the USB line
    build/release/bin/efr32sim --tty "$work/tty" --reset "$work/reset" --control "$work/control" --any-line --no-stdin \
        >"$work/chip.log" 2>&1 &
    pids+=($!)
    within 10 test -S "$work/control"
}

# start_board [QEMU's ARGUMENTS...]: the station of the folder $station
start_board() {
    local port
    mkdir "$station"
    port=$(python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
    cat >"$station/ssh" <<S
Host board
HostName 127.0.0.1
Port $port
User root
IdentityFile $image/key
StrictHostKeyChecking no
UserKnownHostsFile /dev/null
LogLevel ERROR
ConnectTimeout 60
ServerAliveInterval 15
ServerAliveCountMax 4
ControlMaster auto
ControlPath $station/ssh.sock
ControlPersist yes
S
    qemu-system-arm -M virt,highmem=off -cpu cortex-a7 -m 1024 -smp 2 -accel tcg,thread=multi \
        -kernel "$image/vmlinuz" -initrd "$image/initrd.gz" -append "console=ttyAMA0 mitigations=off" \
        -drive "file=$image/disk,if=none,id=disk,format=raw,snapshot=on" -device virtio-blk-device,drive=disk \
        -drive "file=$work/tests.ext4,if=none,id=tests,format=raw,snapshot=on" -device virtio-blk-device,drive=tests \
        -device virtio-rng-device \
        -netdev "user,id=net,restrict=on,hostfwd=tcp:127.0.0.1:$port-:22" -device virtio-net-device,netdev=net \
        -display none -serial "file:$station/console" -monitor "unix:$station/monitor,server=on,wait=off" "$@" &
    pids+=($!)
}

# Between the two steps udev reads rules that name a group which is not there yet, as any event could make it do.
install_package() {
    on_board 'dpkg --unpack /opt/station/brisca-service.deb && udevadm control --reload &&
        udevadm trigger --settle /dev/evse/tty_efr32 && dpkg --configure brisca-service'
} >>"$station/log" 2>&1
restart_board() {
    on_board 'systemctl reboot' 2>/dev/null || true
    ssh -F "$station/ssh" -O exit board 2>/dev/null || true
    within $kBootSeconds booted_since "$1"
}
boot_id() { on_board cat /proc/sys/kernel/random/boot_id; }
booted() { on_board systemctl is-system-running --wait >/dev/null || [ "$(on_board systemctl is-system-running)" = degraded ]; }
booted_since() { local now; now=$(boot_id) && [ -n "$now" ] && [ "$now" != "$1" ] && booted; }
reboot_board() { restart_board "$(boot_id)"; }

fill_board() {
    on_board "mkdir -p /opt/station $PWD && mount LABEL=tests $PWD"
    on_board "cp $PWD/tests/station/cases.sh $PWD/build/armhf/bin/{efr32sim,brisca-phone,chp} /opt/station
        cp $PWD/build/armhf/brisca-service_*.deb /opt/station/brisca-service.deb"
}

cases() { on_board BRISCA_STATION_PACE=4 /opt/station/cases.sh "$1" | tee "$station/$1"; }

# The cases of tests/station inside, on a chip simulated there.
part_cases() {
    local phase
    for phase in installed booted; do
        # The cases lead the links themselves.
        on_board rm -f /etc/udev/rules.d/50-board.rules
        [ $phase = installed ] || reboot_board
        try "tests/station, $phase" cases $phase
        row "tests/station, $phase: passed" "$(grep -c '^ok ' "$station/$phase")"
    done
}

plug() { monitor device_add usb-serial,chardev=chip,id=chip; }
unplugged() { monitor device_del chip && within 60 on_board test ! -e /dev/evse/tty_efr32; }
answered() { [[ $(chip get status) == 2.05* ]]; }
devices_given() { [ "$(on_board stat -Lc %G%a /dev/evse/tty_efr32 /dev/evse/io_efr32_reset | uniq)" = brisca660 ]; }
served() {
    call startFirmwareApp
    within 60 in_state 2 && chip connect 60000 && chip subscribe on && within 60 answered
} >>"$station/log"
property() { on_board systemctl show --value -p "$1" brisca; }
microseconds() { echo $(($(property "$2") - $(property "$1"))); }

figures() {
    local pid before after
    pid=$(property MainPID)
    row 'start to READY=1, with a reset of the chip' \
        "$(microseconds ExecMainStartTimestampMonotonic ActiveEnterTimestampMonotonic) µs"
    row 'resident in FIRMWARE, a phone connected' "$(on_board "sed -n 's/^VmRSS:[^0-9]*//p' /proc/$pid/status")"
    before=$(switches "$pid")
    sleep $kFigureSeconds
    after=$(switches "$pid")
    row 'context switches a second, a phone connected and silent' $(((after - before) / kFigureSeconds))
    row 'stop' "$(on_board 'a=$(date +%s%3N); systemctl stop brisca; echo $(($(date +%s%3N) - a)) ms')"
    row 'systemd-analyze security brisca' "$(on_board systemd-analyze security brisca --no-pager | tail -n 1 | sed 's/[^0-9]*\([0-9.]*\).*/\1/')"
}
switches() { on_board "cat /proc/$1/task/*/status" | awk '/ctxt_switches/ {sum += $2} END {print sum}'; }

# The chip on a tty of the kernel, which udev knows.
part_line() {
    on_board install -D /opt/station/chp /evse/app/bin/chp
    plug
    within 60 on_board test -e /dev/evse/tty_efr32
    try 'the package installs beside a real tty' install_package
    try 'it answers in BOOTLOADER' within 60 in_state 1
    try 'both devices belong to its group' devices_given
    try 'a phone is answered by the application' served
    try 'the line is unplugged' unplugged
    on_board systemctl stop brisca
    on_board systemctl start brisca
    try 'started without its line it answers ERROR' within 60 in_state 4
    plug
    try 'the line is plugged in: it answers in BOOTLOADER' within 60 in_state 1
    try 'a phone is answered' served
    try 'the line is unplugged while a phone is served' unplugged
    plug
    try 'the line is plugged in again: it answers in BOOTLOADER' within 60 in_state 1
    try 'the station boots' reboot_board
    try 'after the boot it answers in BOOTLOADER' within 60 in_state 1
    row 'restarts by systemd since the boot' "$(property NRestarts)"
    try 'a phone is answered' served
    figures
}

# Those that do not pass run once more, each by itself: an emulation that shares its cores makes tests late.
part_unit() {
    local ctest="cd $PWD && ctest --test-dir build/armhf -L unit --no-tests=error --output-on-failure"
    on_board "mountpoint -q $PWD || mount LABEL=tests $PWD"
    on_board "$ctest -j 3" >"$station/unit" || true
    grep -q 'tests passed' "$station/unit" || { row 'unit tests' FAILED; return; }
    row 'unit tests, three at a time' "$(sed -n 's/.*passed, \(.*\) tests failed out of \(.*\)/\1 of \2 have not passed/p' "$station/unit")"
    on_board "test -s $PWD/build/armhf/Testing/Temporary/LastTestsFailed.log" || return 0
    try 'those, one by one' unit_again "$ctest --rerun-failed"
    sed -n '/tests FAILED:/,$p' "$station/again"
}
unit_again() { on_board "$1" >"$station/again"; }

# on_station PART...: those of them that are wanted
on_station() {
    local part
    try 'the station boots' within $kBootSeconds booted
    fill_board
    for part; do
        ! wanted "$part" || "part_$part"
    done
}

build
make_tests_disk
inside=
if wanted cases; then
    station=$work/inside
    start_board
    on_station cases &
    inside=$!
fi
if wanted line || wanted unit || [ -n "$stay" ]; then
    start_chip
    station=$work/line
    start_board -device qemu-xhci -chardev "serial,id=chip,path=$(realpath "$work/tty")" -device virtio-serial-device \
        -chardev "file,id=reset,path=$work/reset" -device virtserialport,chardev=reset,name=reset
    on_station line unit
fi
[ -z "$inside" ] || wait "$inside"
echo
cat "$work"/*/table
if [ -n "$stay" ]; then
    echo "the station runs until Enter: ssh -F $station/ssh board, brisca-phone $work/control scan"
    read -r
fi
! grep -q FAILED "$work"/*/table
