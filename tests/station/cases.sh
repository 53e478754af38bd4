#!/bin/bash
# The package on a running Debian 12 system with systemd, bus and udev, as root: a simulated chip stands at the
# serial line, and each case prints a line. Nothing here knows whether the system is a container or a machine.
# usage: cases.sh installed     installs the package, tries everything, leaves it enabled
#        cases.sh booted        after a boot: the service is there by itself; then remove, purge, install again
# Beside this file lie brisca-service.deb, efr32sim, brisca-phone and chp. BRISCA_STATION_PACE: every time limit
# times this number, for an emulated machine.
set -uo pipefail
here=$(cd "$(dirname "$0")" && pwd)
readonly kTty=/dev/evse/tty_efr32 kReset=/dev/evse/io_efr32_reset kControl=/run/efr32sim
readonly kDropIn=/run/systemd/system/brisca.service.d/station.conf
readonly kLineWait=/etc/systemd/system/dev-evse-tty_efr32.device.d
# Two ttys that the kernel knows and nobody uses: udev makes the links to them, and the second shows on its
# screen (vcs) what is written to it.
readonly kLineTty=tty63 kResetTty=tty62 kResetScreen=/dev/vcs62
readonly kPace=${BRISCA_STATION_PACE:-1}
failures=0

check() { # check WHAT COMMAND...
    local output
    if output=$("${@:2}" 2>&1); then
        echo "ok      $((SECONDS))s $1"
    else
        echo "FAILED  $((SECONDS))s $1: $output"
        journalctl -u brisca -n 40 --no-pager -o short-monotonic | grep -vF '[liblog]' | tail -n 10
        failures=$((failures + 1))
    fi
}
within() { # within SECONDS COMMAND...: the command holds before that time is over
    local end=$((SECONDS + $1 * kPace))
    until "${@:2}" >/dev/null 2>&1; do
        [ $SECONDS -lt $end ] || { "${@:2}"; return; }
        sleep 0.05
    done
}
says() { # says PATTERN COMMAND...
    local output
    output=$("${@:2}" 2>&1)
    [[ $output =~ $1 ]] || { echo "$output"; return 1; }
}
not() { ! "$@"; }
call() { busctl --system --timeout=$((20 * kPace)) call org.voltra.brisca / brisca.service "$@"; }
in_state() { says "^i $1\$" call getBriscaState; }
phone() { "$here/brisca-phone" $kControl "$@"; }
shows() { says "^$2\$" systemctl show --value -p "$1" brisca; }
main_pid() { systemctl show --value -p MainPID brisca; }
renewed() { local now; now=$(main_pid); [ "$now" != 0 ] && [ "$now" != "$before" ]; }
same() { [ "$(main_pid)" = "$before" ]; }
logged() { journalctl --sync; journalctl -b "_SYSTEMD_INVOCATION_ID=$(systemctl show --value -p InvocationID brisca)" \
    --no-pager -o cat | grep -q "$1"; }
override() { # override LINE...: into the unit's section [Service], until the next one
    mkdir -p "$(dirname $kDropIn)"
    printf '[Service]\n' >$kDropIn
    printf '%s\n' "$@" >>$kDropIn
    systemctl daemon-reload
}
line_wait() { # line_wait [TIME]: instead of the package's own time
    mkdir -p $kLineWait
    printf '[Unit]\nJobRunningTimeoutSec=%s\n' "${1:-}" >$kLineWait/station.conf
    [ -n "${1:-}" ] || rm $kLineWait/station.conf
    systemctl daemon-reload
}
install_package() { dpkg -i "${1:-$here/brisca-service.deb}"; }
uevent() { # uevent ACTION TTY: as if the device came or went
    [ -e "/dev/$2" ] || mknod "/dev/$2" c 4 "${2#tty}"
    udevadm trigger --settle --action="$1" "/sys/class/tty/$2"
}
files() { # every name in the file system that a package could leave behind
    find / -xdev \( -path /proc -o -path /sys -o -path /run -o -path /dev -o -path /tmp -o -path /var/tmp -o -path /var/log \
        -o -path /var/lib/dpkg -o -path "$here" -o -path /var/lib/systemd/timers \) -prune -o -print | sort
}
users() { getent passwd; getent group; }

board_rules() {
    cat >/etc/udev/rules.d/50-board.rules <<R
KERNEL=="$kLineTty", SYMLINK+="evse/tty_efr32"
KERNEL=="$kResetTty", SYMLINK+="evse/io_efr32_reset"
R
    udevadm control --reload
}
simulated_chip() {
    files >"$here/files"
    users >"$here/users"
    mkdir -p /evse/app/bin
    cp "$here/chp" /evse/app/bin/chp
    useradd -r member && useradd -r outsider
    cat >/etc/systemd/system/chip.service <<U
[Unit]
Before=brisca.service
[Service]
Type=exec
ExecStartPre=mkdir -p /dev/evse
ExecStart=$here/efr32sim --tty $kTty --reset $kReset --control $kControl --no-stdin
ExecStartPost=/bin/sh -c 'until [ -S $kControl ] && [ -p $kReset ]; do sleep 0.05; done; chmod 666 $kTty $kReset'
[Install]
WantedBy=multi-user.target
U
    board_rules
    line_wait 1ms # udev knows no pseudo-terminals
    systemctl enable --now chip || exit 1
}

documented() {
    systemctl show --value -p Documentation brisca |
        sed -E 's,man:([^ ]+)\((.)\),/usr/share/man/man\2/\1.\2.gz,; s,file:,,' | xargs stat
}
first_install() {
    check "the package installs" install_package
    check "a first install answers on the bus within 10 s, in BOOTLOADER" within 10 in_state 1
    check "the bus says nothing against it" not says "denied|not allowed" journalctl -b -u dbus --no-pager
    check "systemd has no complaint about the unit" \
        not says "brisca.service:.*(Unknown|not a device|deprecated|Failed)" journalctl -b _PID=1 --no-pager
    check "it is enabled" says "^enabled" systemctl is-enabled brisca
    check "its status shows it active" says "Active: active \(running\)" systemctl status --no-pager brisca
    check "its status says what it does" within 10 says 'Status: "BOOTLOADER"' systemctl status --no-pager brisca
    check "its status leads to documents that are there" documented
    check "it does not run as root" says "^brisca$" stat -c %U "/proc/$(main_pid)"
}

tells_outsiders() {
    local verb
    for verb in status health start disable restart mac firmware 'name x' disconnect monitor 'update /etc/hostname'; do
        says 'brisca-clients.*, status 4$' sh -c "runuser -u outsider -- briscactl $verb; echo \", status \$?\"" || return
    done
}
who_may_call() {
    local pattern
    usermod -aG brisca-clients member
    local row own=(busctl --system call org.freedesktop.DBus /org/freedesktop/DBus org.freedesktop.DBus RequestName
        su org.voltra.brisca 0)
    for row in 'root:^i 1$' 'member:^i 1$' 'outsider:denied|not allowed'; do
        check "a call by ${row%%:*} gives ${row#*:}" says "${row#*:}" runuser -u "${row%%:*}" -- \
            busctl --system call org.voltra.brisca / brisca.service getBriscaState
    done
    check "a member sees the unit's status" says "status: +BOOTLOADER" runuser -u member -- briscactl status
    check "an outsider is told so by every verb" tells_outsiders
    check "a member may introspect" says getBriscaState runuser -u member -- \
        busctl --system introspect org.voltra.brisca / brisca.service
    for pattern in member outsider; do
        check "the name may not be taken by $pattern" says "denied|not allowed" runuser -u $pattern -- "${own[@]}"
    done
}

serves_a_phone() {
    call startFirmwareApp
    check "startFirmwareApp leads to FIRMWARE" within 20 in_state 2
    check "the phone connects" says ^ok phone connect 20000
    phone subscribe on >/dev/null
    check "the unit's status tells of it" within 20 says 'Status: "FIRMWARE: phone connected"' \
        systemctl status --no-pager brisca
    check "the phone is answered by the application" within 20 says ^2.05 phone get status
    check "the application's pipes are in the unit's own /tmp" not test -e /tmp/ttyBleRx
}

updates() {
    head -c 20000 /dev/urandom >/evse/data/firmware
    cp /evse/data/firmware /tmp/firmware
    check "a file that the unit hides is refused" says "does not see /tmp" briscactl update --yes /tmp/firmware
    check "an update is done, from FIRMWARE" says "done, BOOTLOADER" briscactl update --yes /evse/data/firmware
    check "the chip holds the file" stored
    rm -f /evse/data/firmware /tmp/firmware
}
stored() { phone image /run/stored >/dev/null && cmp -n 20000 /evse/data/firmware /run/stored; }

heals() { # heals WHAT COMMAND...: the service is another process then, and serves
    before=$(main_pid)
    "${@:2}"
    check "$1: systemd starts it anew" within 60 renewed
    check "$1: it answers in BOOTLOADER" within 30 in_state 1
}
survives() { # survives WHAT COMMAND...: the service stays, and is on the bus again
    before=$(main_pid)
    "${@:2}"
    check "$1: it answers" within 30 in_state 1
    check "$1: it is the same process" same
}
silent_at_the_start() {
    override TimeoutStartSec=$((5 * kPace))
    phone fault silent-reset count=0 >/dev/null
    before=$(main_pid)
    systemctl restart brisca
    check "silent chip at the start: systemd tries again" within 60 says '^[1-9]' systemctl show --value -p NRestarts brisca
    phone faults clear >/dev/null
    check "silent chip at the start: it serves when the chip speaks" within 60 in_state 1
    override
}
misfortunes() {
    heals "crash" systemctl kill --kill-whom=main -s SEGV brisca
    heals "stray SIGTERM" sh -c "kill -TERM $(main_pid)"
    override WatchdogSec=$((2 * kPace)) TimeoutStopSec=$((2 * kPace))
    systemctl restart brisca
    heals "stopped process" systemctl kill --kill-whom=main -s STOP brisca
    override
    systemctl restart brisca
    silent_at_the_start
    survives "bus daemon restarted" systemctl restart dbus
    survives "bus daemon killed" systemctl kill -s KILL dbus
}

holds_line() { readlink /proc/"$(main_pid)"/fd/* | grep -qx "/dev/$kLineTty"; }
late_devices() {
    systemctl stop brisca chip
    line_wait
    check "without its serial line it starts all the same" timeout $((30 * kPace)) systemctl start brisca
    check "without its serial line it answers ERROR" in_state 4
    before=$(main_pid)
    uevent add $kLineTty
    check "a serial line that comes late: udev restarts the service" within 20 renewed
    check "a serial line that comes late is opened" within 20 holds_line
    before=$(main_pid)
    uevent remove $kLineTty
    uevent add $kLineTty
    check "a serial line that is replaced: udev restarts the service" within 20 renewed
    check "a serial line that is replaced is opened" within 20 holds_line
    systemctl stop brisca
    uevent remove $kLineTty
    line_wait $((60 * kPace))
    systemctl start --no-block brisca
    check "a serial line that comes soon is waited for" within 30 says "dev-evse-tty_efr32.device +start +running" \
        systemctl list-jobs --no-legend
    uevent add $kLineTty
    check "a serial line that comes soon is opened" within 30 holds_line
    line_wait
    systemctl stop brisca
    uevent remove $kLineTty
    uevent add $kLineTty
    check "a stopped service is not started by its devices" shows ActiveState inactive
}
reset_lines() {
    local power=/sys/class/tty/$kResetTty/power
    systemctl start --no-block brisca
    [ -e $kResetScreen ] || mknod $kResetScreen c 7 "${kResetTty#tty}"
    uevent add $kResetTty
    systemctl stop brisca
    printf '\033c' >/dev/$kResetTty
    systemctl start --no-block brisca
    check "a device as reset line is pulsed" within 20 says ^01 head -c 2 $kResetScreen
    systemctl stop brisca
    uevent remove $kResetTty
    mount -t tmpfs station $power
    echo x >$power/value
    ln -s $power/value $kReset
    systemctl start --no-block brisca
    check "a value file below /sys as reset line is pulsed" within 20 says ^1 cat $power/value
    systemctl stop brisca
    umount $power
    rm -f $kReset
    line_wait 1ms
    systemctl start chip brisca
    check "a FIFO as reset line serves" in_state 1
}

stops() {
    local since=$SECONDS
    systemctl stop brisca
    check "it stops within 8 s" test $((SECONDS - since)) -le $((8 * kPace))
    check "it stops by itself" shows Result success
    check "the chip is held in reset" says 'mode="held"' phone status
    check "no process is left" not says . find /proc -maxdepth 1 -user brisca
    check "no file is left in /tmp" not says . find /tmp /var/tmp -path '*brisca*'
    check "a call starts it again" within 20 in_state 1
}
upgrades() {
    dpkg-deb -R "$here/brisca-service.deb" /run/old
    sed -i 's/^Version: .*/Version: 0.0.1/' /run/old/DEBIAN/control
    dpkg-deb -b /run/old /run/old.deb >/dev/null
    install_package /run/old.deb >/dev/null 2>&1
    serves_a_phone
    heals "upgrade while a phone is connected" install_package
    serves_a_phone
}
left_alone() {
    systemctl disable --now brisca
    check "an upgrade succeeds while the unit is disabled" install_package
    check "a disabled unit stays so" says ^disabled systemctl is-enabled brisca
    check "a call does not start a disabled unit" not call getBriscaState
    check "a disabled unit stays stopped" shows ActiveState inactive
    systemctl mask brisca
    check "an upgrade succeeds while the unit is masked" install_package
    check "a masked unit stays so" says ^masked systemctl is-enabled brisca
    systemctl unmask brisca
    systemctl enable --now brisca
}

boots() {
    check "after a boot it answers by itself" within 30 in_state 1
    check "after a boot it has not been restarted" shows NRestarts 0
    check "after a boot it never was in ERROR" not logged "to ERROR state"
    serves_a_phone
}
goes() {
    systemctl disable --now chip
    rm -r /evse/app /etc/udev/rules.d/50-board.rules /etc/systemd/system/chip.service $kLineWait
    userdel member && userdel outsider
    check "the package is removed" dpkg -r brisca-service
    check "a removed service is stopped" not says . find /proc -maxdepth 1 -user brisca
    check "a removed package keeps the log's configuration" test -f /evse/data/log.cfg
    check "the package is purged" dpkg -P brisca-service
    check "no file is left" diff "$here/files" <(files)
    check "no user or group is left" diff "$here/users" <(users)
}
modes_at_once() {
    local device
    board_rules
    uevent add $kLineTty
    uevent add $kResetTty
    override TimeoutStartSec=$kPace
    install_package >/dev/null 2>&1
    for device in $kTty $kReset; do
        check "right after the install $device is the group's" says "^brisca 660" stat -Lc "%G %a" $device
    done
}

case $1 in
installed)
    simulated_chip
    for group in first_install who_may_call serves_a_phone updates misfortunes late_devices reset_lines stops upgrades \
        left_alone; do
        $group
    done ;;
booted)
    for group in boots goes modes_at_once; do
        $group
    done ;;
esac
echo "$failures failed"
exit $((failures > 0))
