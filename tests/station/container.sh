#!/bin/bash
# Boots a Debian system in a container, with a systemd, journal, bus and udev of its own, and runs the cases
# of cases.sh there on the package of a build. Ends with 77 and the reason where no container can boot.
# usage: container.sh BUILD-DIRECTORY
# The root file system is kept in $XDG_CACHE_HOME/brisca-service (~/.cache without it) between runs.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
readonly kPackages=systemd-sysv,udev,dbus,libqt5core5a,libqt5dbus5,libcoap3
readonly kBootSeconds=60

skip() { echo "station: skipped: $*"; exit 77; }
[ "$(id -u)" -eq 0 ] || skip "needs root"
for program in debootstrap systemd-nspawn nsenter; do
    command -v $program >/dev/null || skip "$program is missing (scripts/setup.sh)"
done
hierarchy=$(findmnt -nt cgroup2 -o TARGET | head -n 1)
[ -w "$hierarchy/cgroup.procs" ] || skip "needs control groups of version 2"
[ -e /sys/class/tty/tty63 ] || skip "needs a kernel with virtual terminals"
unshare --mount true || skip "may not mount"
# The mounts of a run that is killed go with it, and two runs would share the kernel's devices.
[ "${1:-}" = alone ] || exec unshare --mount flock /run/lock/brisca-station "$0" alone "$@"
build=$(realpath "$2")

cache=${XDG_CACHE_HOME:-${HOME:-/root}/.cache}/brisca-service
root=$cache/station-$(echo "$kPackages" | sha256sum | cut -c1-12)
make_root() {
    local mirror
    mirror=$(apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' | head -n 1)
    rm -rf "$root.new"
    debootstrap --variant=minbase --include=$kPackages bookworm "$root.new" "$mirror" >"$root.log" 2>&1 ||
        skip "no root file system could be made: $(tail -n 1 "$root.log")"
    rm -rf "$root.new"/var/cache/apt/archives/*.deb
    mv "$root.new" "$root"
}
mkdir -p "$cache"
[ -d "$root" ] || make_root

work=$(mktemp -d)
cgroup=$hierarchy$(sed -n 's/^0:://p' /proc/self/cgroup)/brisca-station
end_container() {
    [ -d "$cgroup" ] || return 0
    echo 1 >"$cgroup/cgroup.kill"
    wait
    find "$cgroup" -depth -type d -exec rmdir {} + 2>/dev/null || true
}
finish() {
    end_container
    umount --lazy "$work"
    rmdir "$work"
}
trap finish EXIT
end_container # of a run that was killed
mkdir -p "$cgroup"
mount -t tmpfs station "$work"
mkdir "$work"/{upper,lower,system,udev}
mount -t overlay station -o "lowerdir=$root,upperdir=$work/upper,workdir=$work/lower" "$work/system" ||
    skip "needs an overlay file system"

station=$work/system/opt/station
mkdir "$station"
cp "$here/cases.sh" "$build"/bin/{efr32sim,brisca-phone,chp} "$station"
cpack --config "$build/CPackConfig.cmake" -B "$work/package" >"$work/cpack.log" || { cat "$work/cpack.log"; exit 1; }
mv "$work"/package/brisca-service_*.deb "$station/brisca-service.deb"
echo station >"$work/system/etc/hostname"
# Not of the container's business: the host's kernel settings and devices.
for unit in systemd-sysctl systemd-udev-trigger; do
    ln -s /dev/null "$work/system/etc/systemd/system/$unit.service"
done

inside() { nsenter -t "$init" -m -u -i -n -p -C env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin "$@"; }
booted() { init=$(pgrep -P "$nspawn" | head -n 1) && inside test -S /run/systemd/private; }
boot() {
    # /sys is writable for udev, and systemd listens to udev only where it finds its socket at the start; with
    # CAP_BPF and a unified hierarchy the unit's device policy is in force.
    rm -f "$work/udev/control"
    : >"$work/udev/control"
    (
        echo $BASHPID >"$cgroup/cgroup.procs"
        SYSTEMD_NSPAWN_API_VFS_WRITABLE=1 SYSTEMD_NSPAWN_UNIFIED_HIERARCHY=1 exec systemd-nspawn --boot \
            --directory="$work/system" --machine=station --register=no --keep-unit --private-network \
            --bind="$work/udev:/run/udev" --capability=CAP_BPF --system-call-filter=bpf --console=pipe
    ) </dev/null >"$work/boot.log" 2>&1 &
    nspawn=$!
    local end=$((SECONDS + kBootSeconds))
    until booted 2>/dev/null; do
        kill -0 "$nspawn" 2>/dev/null && [ $SECONDS -lt $end ] || skip "no container boots: $(tail -n 1 "$work/boot.log")"
        sleep 0.1
    done
    timeout $kBootSeconds nsenter -t "$init" -m -p -C systemctl is-system-running --wait || true
}
shut_down() {
    inside systemctl poweroff 2>/dev/null || true
    wait "$nspawn" || true
}

failed=0
for phase in installed booted; do
    boot
    inside /opt/station/cases.sh $phase || failed=1
    shut_down
done
exit $failed
