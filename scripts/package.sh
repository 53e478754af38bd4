#!/bin/bash
# Builds the Debian package of the service and checks it with lintian; prints where it lies.
# usage: scripts/package.sh [--try]
# --try (root only): also installs it into a clean Debian root, lists and checks its files there, purges it
# and checks that nothing is left.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh
cmake --preset release >/dev/null
cmake --build --preset release
(cd build/release && rm -f ./*.deb && cpack >/dev/null)
package=$(echo build/release/brisca-service_*.deb)
lintian --fail-on error "$package"
echo "package: $package"
[ "${1:-}" = --try ] || exit 0

root=$(mktemp -d)
trap 'umount "$root/proc" 2>/dev/null || true; rm -rf "$root"' EXIT
mirror=$(apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' | head -n 1)
debootstrap --variant=minbase --include=systemd,dbus,libqt5core5a,libqt5dbus5 bookworm "$root" "$mirror" >/dev/null
mount -t proc proc "$root/proc"
snapshot() {
    (cd "$root" && find . -xdev \( -path ./proc -o -path ./var/lib/dpkg -o -path ./var/log -o -path ./var/cache \
        -o -path ./tmp \) -prune -o -print | sort)
}
snapshot >"$root.before"
cp "$package" "$root/tmp/package.deb"
chroot "$root" dpkg -i /tmp/package.deb
chroot "$root" dpkg -L brisca-service
chroot "$root" dpkg --verify brisca-service
for path in /usr/libexec/brisca/BriscaService /usr/lib/systemd/system/brisca.service /evse/data/log.cfg \
    /usr/share/dbus-1/system.d/org.voltra.brisca.conf /usr/share/dbus-1/interfaces/brisca.service.xml; do
    [ -e "$root$path" ] || { echo "package: $path is missing" >&2; exit 1; }
done
chroot "$root" getent passwd brisca
chroot "$root" getent group brisca-clients
# Without a system bus and a chip the service still starts, says so and stops on request.
chroot "$root" timeout --preserve-status -s TERM 3 /usr/libexec/brisca/BriscaService | tail -n 3
chroot "$root" dpkg --purge brisca-service
snapshot >"$root.after"
if ! diff "$root.before" "$root.after"; then
    echo "package: the purge left something behind" >&2
    exit 1
fi
rm -f "$root.before" "$root.after"
echo "package: installed, checked and removed without a trace"
