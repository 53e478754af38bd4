#!/bin/bash
# Makes the sysroot of the preset armhf: headers and libraries of the station's processor, from Debian's
# packages. Needs no root, runs nothing foreign and leaves the machine's packages alone. Prints where it lies:
# brisca-service/armhf/sysroot in $XDG_CACHE_HOME (~/.cache). One that is there already is kept.
# usage: scripts/sysroot.sh [--renew]
# --renew: makes it anew, of the packages of today.
set -euo pipefail
. "$(dirname "$0")/support/usage.bash"
cd "$(dirname "$0")/.."
. scripts/support/armhf.bash
case ${1:-} in
    '') if is_current "$sysroot" scripts/sysroot.sh scripts/support/armhf.bash; then echo "$sysroot"; exit; fi ;;
    --renew) ;;
    *) refuse ;;
esac

# Headers whose own dependencies (graphics, whole compilers) nothing here needs.
alone=(qtbase5-dev qt5-qmake libc6-dev linux-libc-dev)
complete=(libqt5core5a libqt5dbus5 libsystemd-dev libgtest-dev libgmock-dev libcoap3-dev)
debs=$cache/sysroot-debs
new=$sysroot.new
database=$new/var/lib/dpkg

fetch() {
    rm -rf "$debs"
    mkdir -p "$debs/partial"
    apt_armhf_update
    alone+=("$(apt-cache "${apt_options[@]}" depends --important libboost-dev | awk '$1 == "Depends:" {print $2}')")
    apt_armhf -y --download-only --no-install-recommends -oDir::Cache::archives="$debs" install "${complete[@]}"
    (cd "$debs" && apt_armhf download "${alone[@]}")
}

unpack() {
    rm -rf "$new"
    mkdir -p "$new"/usr/{bin,sbin,lib}
    local deb folder link
    for folder in bin sbin lib; do ln -s "usr/$folder" "$new/$folder"; done
    for deb in "$debs"/*.deb; do
        dpkg-deb --fsys-tarfile "$deb" | tar -x --keep-directory-symlink -C "$new" \
            --exclude=./usr/share/doc --exclude=./usr/share/man --exclude=./usr/share/locale
    done
    find "$new" -type l -lname '/*' -print0 | while IFS= read -r -d '' link; do
        ln -sfnr "$new$(readlink "$link")" "$link"
    done
}

# Qt's CMake files look for its generators beside its libraries: there they find this machine's.
link_generators() {
    local folder
    for folder in "$new/usr/lib/qt5/bin" "$new/usr/lib/$triple/qt5/bin"; do
        rm -rf "$folder"
        mkdir -p "$folder"
        ln -s /usr/lib/qt5/bin/* "$folder/"
    done
}

# What dpkg-shlibdeps asks: which package of which version has a library, and which symbols since when.
record_package() { # DEB
    local deb=$1 control=$cache/control name file
    rm -rf "$control"
    dpkg-deb -e "$deb" "$control"
    name=$(dpkg-deb -f "$deb" Package)
    if grep -q '^Multi-Arch: same' "$control/control"; then name+=:armhf; fi
    { sed '/^Description:/,$d' "$control/control"; printf 'Status: install ok installed\nDescription: -\n\n'; } \
        >>"$database/status"
    for file in symbols shlibs; do
        if [ -f "$control/$file" ]; then cp "$control/$file" "$database/info/$name.$file"; fi
    done
    dpkg-deb --fsys-tarfile "$deb" | tar -t |
        sed -E "s,^\.,,; s,/\$,,; s,^/(lib|bin|sbin)(/|\$),/usr/\1\2,; s,^,$sysroot," >"$database/info/$name.list"
}
record_packages() {
    rm -rf "$database"
    mkdir -p "$database/info" "$database/updates"
    echo 1 >"$database/info/format"
    echo armhf >"$database/arch"
    local deb
    for deb in "$debs"/*.deb; do record_package "$deb"; done
}

fetch
unpack
link_generators
record_packages
mark_current "$new" scripts/sysroot.sh scripts/support/armhf.bash
rm -rf "$sysroot" "$debs" "$cache/control"
mv "$new" "$sysroot"
echo "$sysroot"
