#!/bin/bash
# Builds the Debian package of the service and the one of its debug information, checks what is in them, also
# with lintian, and prints where they lie.
# usage: scripts/package.sh [--arch amd64|armhf | --try]
# --arch: for that processor instead of this machine's own; armhf is a station's Cortex-A7.
# --try (as root): then installs, upgrades and purges it on a real systemd, in a container (tests/station).
set -euo pipefail
. "$(dirname "$0")/support/usage.bash"
cd "$(dirname "$0")/.."

native=$(dpkg --print-architecture)
trial=(:)
case ${1:-} in
    '') arch=$native ;;
    --try) arch=$native trial=(scripts/test.sh release -L station --verbose) ;;
    --arch) arch=${2:-} ;;
    *) refuse ;;
esac

# How each architecture is built, and what readelf has to say of its programs.
case $arch in
    "$native") preset=release ;;
    armhf) preset=armhf ;;
    *) refuse ;;
esac
case $arch in
    amd64) machine='ELF64 Advanced Micro Devices X86-64' ;;
    armhf) machine='ELF32 ARM hard-float ABI' ;;
esac

fail() {
    echo "package: $*" >&2
    exit 1
}

# The dependencies of a foreign program are looked up in the sysroot's packages.
cross=()
scripts/setup.sh
if [ "$arch" != "$native" ]; then
    scripts/setup.sh cross
    cross=(env DEB_HOST_ARCH="$arch" DPKG_ADMINDIR="$(scripts/sysroot.sh)/var/lib/dpkg")
fi
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset" --target BriscaService briscactl brisca_zipped
(cd "build/$preset" && rm -rf ./*.deb ./*.ddeb _CPack_Packages && "${cross[@]}" cpack >/dev/null)
package=$(echo "build/$preset"/brisca-service_*.deb)
debug=${package/service_/service-dbgsym_}
content=$(mktemp -d)
trap 'rm -rf "$content"' EXIT

# cpack makes an executable of the debug information, sums it up under a path of this machine, and leaves out
# the documents that every package has; Debian's own -dbgsym packages link to the program's.
dpkg-deb -R "build/$preset"/brisca-service-dbgsym_*.ddeb "$content"
(
    cd "$content"
    chmod 755 .
    find usr -type f -exec chmod 644 {} + -exec md5sum {} + >DEBIAN/md5sums
    mkdir -p usr/share/doc
    ln -s brisca-service usr/share/doc/brisca-service-dbgsym
    sed -i '/^Package-Type:/d' DEBIAN/control
)
dpkg-deb --root-owner-group -b "$content" "$debug" >/dev/null
rm -rf "${content:?}"/* "build/$preset"/*.ddeb

# Both packages belong to the architecture, and so do programs, dependencies and debug information.
for deb in "$package" "$debug"; do
    [ "$(dpkg-deb -f "$deb" Architecture)" = "$arch" ] || fail "$deb is not for $arch"
    dpkg-deb -x "$deb" "$content"
done
for document in $(grep -oP '\]\(\K[^)#:]+' README.md); do
    [ -f "$content/usr/share/doc/brisca-service/$document" ] || fail "no $document, which README.md links to"
done
depends=$(dpkg-deb -f "$package" Depends)
for library in libc6 libgcc-s1 libqt5core5a libqt5dbus5 libstdc++6 libsystemd0; do
    [[ ", $depends," =~ ", $library"(,| \(>= ) ]] || fail "no dependency on $library in: $depends"
done
for program in "$content"/usr/libexec/brisca/BriscaService "$content"/usr/bin/briscactl; do
    elf=$(readelf -Whdn "$program")
    for word in $machine DYN BIND_NOW; do
        [[ $elf == *$word* ]] || fail "$program: no $word in its ELF headers"
    done
    id=$(sed -n 's/.*Build ID: //p' <<<"$elf")
    [[ $(readelf -WS "$content/usr/lib/debug/.build-id/${id::2}/${id:2}.debug" 2>&1) == *.debug_info* ]] ||
        fail "no debug information of build $id in $debug"
done
lintian --fail-on error "$package" "$debug"
printf 'package: %s\n' "$package" "$debug"
"${trial[@]}"
