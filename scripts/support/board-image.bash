# Makes the emulated station's disk, kernel and initramfs, as root; sourced by scripts/board.sh after armhf.bash.
# Nothing foreign is run: Debian is installed and configured for this machine's own processor, then every program
# is overwritten by the armhf package of the same name, and dpkg checks the result file by file. Configuring the
# packages inside the emulation instead would take ten minutes.
image=$cache/board
image_sources=(scripts/support/armhf.bash scripts/support/board-image.bash)
kBoardPackages=systemd-sysv,udev,dbus,init-system-helpers,openssh-server,kmod,procps,bubblewrap,lrzsz,cmake
kBoardPackages+=,libglib2.0-bin,libqt5core5a,libqt5dbus5,libcoap3
kInitModules=(virtio_mmio virtio_blk crc32c_generic ext4)

image_root() { # ROOT: Debian for this machine's processor
    local mirror codename
    read -r mirror codename < <(apt-get indextargets 'Created-By: Packages' 'Label: Debian' \
        --format '$(REPO_URI) $(RELEASE)')
    debootstrap --variant=minbase --include="$kBoardPackages" "$codename" "$1" "$mirror" >"$image.log"
    rm -rf "$1"/var/cache/apt/archives/*.deb "$1"/usr/share/{doc,man,locale}/*
}

image_fetch() { # ROOT DEBS: the armhf packages of the same names, and the kernel
    local native=$(dpkg --print-architecture) kernel
    apt_armhf_update
    kernel=$(apt-cache "${apt_options[@]}" depends --important linux-image-armmp | awk '$1 == "Depends:" {print $2}')
    mkdir -p "$2/kernel"
    (cd "$2" && dpkg-query --admindir="$1/var/lib/dpkg" -W -f='${Architecture} ${Package}\n' |
        sed -n "s/^$native //p" | xargs apt-get "${apt_options[@]}" -qq download)
    (cd "$2/kernel" && apt_armhf download "$kernel" busybox-static)
}

image_exchange() { # ROOT DEBS
    local deb name file native=$(dpkg --print-architecture) info=$1/var/lib/dpkg/info
    # Modes and owners that the packages' own scripts have given.
    (cd "$1" && find . -xdev ! -type l \( -perm /7000 -o ! -user root -o ! -group root \) -printf '%m %U:%G %p\n') >"$1.owners"
    dpkg-query --admindir="$1/var/lib/dpkg" -W -f='${db:Status-Abbrev}${Architecture} ${binary:Package}\n' |
        sed -n "s/^ii $native //p" | xargs dpkg-query --admindir="$1/var/lib/dpkg" -L | sort -u >"$1.native"
    rm -f "$1/etc/ld.so.cache" "$info"/*:"$native".*
    cp -a "$1/etc" "$1.etc"
    for deb in "$2"/*.deb; do
        dpkg-deb --fsys-tarfile "$deb" | tar -x --keep-directory-symlink -C "$1" \
            --exclude='./usr/share/doc/*' --exclude='./usr/share/man/*' --exclude='./usr/share/locale/*'
        name=$(dpkg-deb -f "$deb" Package)
        [ "$(dpkg-deb -f "$deb" Multi-Arch)" != same ] || name+=:armhf
        rm -rf "$1.control"
        dpkg-deb -e "$deb" "$1.control"
        rm "$1.control/control"
        for file in "$1.control"/*; do cp "$file" "$info/$name.${file##*/}"; done
        dpkg-deb --fsys-tarfile "$deb" | tar -t --quoting-style=literal | sed 's,^\.,,; s,/$,,; s,^$,/.,' |
            tee -a "$1.armhf" >"$info/$name.list"
    done
    cp -a "$1.etc/." "$1/etc/"
    # What only this machine's packages have.
    sort -u "$1.armhf" | comm -23 "$1.native" - | (cd "$1" && while read -r file; do
        [ ! -f ".$file" ] && [ ! -L ".$file" ] || rm "./$file"
    done)
    (cd "$1" && while read -r mode owner file; do
        [ ! -e "$file" ] || { chown "$owner" "$file" && chmod "$mode" "$file"; }
    done) <"$1.owners"
    # The versions stay those of this machine's packages, which differ by rebuilds at most.
    sed -i "s/^Architecture: $native\$/Architecture: armhf/" "$1/var/lib/dpkg/status"
    echo armhf >"$1/var/lib/dpkg/arch"
}

image_verify() { # ROOT: nothing of this machine's processor is left, and every file is the one of its package
    local wrong
    wrong=$(
        find "$1" -xdev -type f -exec file -N {} + | grep 'ELF.*x86-64' || true
        dpkg --root="$1" --audit
        dpkg --root="$1" --verify | grep -v ' /usr/share/\(doc\|man\|locale\)/' || true
    )
    [ -z "$wrong" ] || { printf 'board: the image is not as its packages:\n%s\n' "$wrong" >&2; return 1; }
}

image_kernel() { # ROOT DEBS: kernel and initramfs go beside the image, the modules into it
    local tree=$1.kernel init=$1.init deb file number=10
    mkdir -p "$tree" "$init"/{bin,proc,dev,new,modules}
    for deb in "$2"/kernel/*.deb; do dpkg-deb -x "$deb" "$tree"; done
    cp -a "$tree/lib/modules" "$1/usr/lib/"
    local version=$(ls "$tree/lib/modules")
    depmod -b "$1" "$version"
    cp "$tree/bin/busybox" "$init/bin/"
    for file in "${kInitModules[@]}"; do modprobe -d "$1" -S "$version" --show-depends "$file"; done |
        awk '$1 == "insmod" && !seen[$2]++ {print $2}' |
        while read -r file; do cp "$file" "$init/modules/$((number++))-${file##*/}"; done
    cat >"$init/init" <<'INIT'
#!/bin/busybox sh
/bin/busybox mount -t devtmpfs none /dev
for module in /modules/*; do /bin/busybox insmod $module 2>/dev/null; done
until disk=$(/bin/busybox findfs LABEL=station); do /bin/busybox sleep 0.1; done
/bin/busybox mount -t ext4 $disk /new
/bin/busybox mount --move /dev /new/dev
exec /bin/busybox switch_root /new /sbin/init
INIT
    chmod +x "$init/init"
    (cd "$init" && find . | cpio -o -H newc --quiet | gzip -1) >"$image.new/initrd.gz"
    cp "$tree"/boot/vmlinuz-* "$image.new/vmlinuz"
}

# A shell over the network; the links to the chip's lines as a board's own rules make them.
image_configure() { # ROOT
    local unit
    echo station >"$1/etc/hostname"
    echo '127.0.0.1 localhost station' >"$1/etc/hosts"
    echo 'LABEL=station / ext4 defaults 0 1' >"$1/etc/fstab"
    printf '[Match]\nName=e*\n[Network]\nDHCP=ipv4\n' >"$1/etc/systemd/network/board.network"
    cat >"$1/etc/udev/rules.d/50-board.rules" <<'RULES'
SUBSYSTEM=="tty", KERNEL=="ttyUSB*", SYMLINK+="evse/tty_efr32"
SUBSYSTEM=="virtio-ports", ATTR{name}=="reset", SYMLINK+="evse/io_efr32_reset"
RULES
    for unit in apt-daily.timer apt-daily-upgrade.timer e2scrub_all.timer e2scrub_reap.service fstrim.timer \
        dpkg-db-backup.timer getty@.service serial-getty@.service systemd-networkd-wait-online.service; do
        ln -sf /dev/null "$1/etc/systemd/system/$unit"
    done
    ln -sf /lib/systemd/system/systemd-networkd.service "$1/etc/systemd/system/multi-user.target.wants/"
    ssh-keygen -q -t ed25519 -N '' -f "$image.new/key"
    rm -f "$1"/etc/ssh/ssh_host_*
    ssh-keygen -q -t ed25519 -N '' -f "$1/etc/ssh/ssh_host_ed25519_key"
    install -D -m 600 "$image.new/key.pub" "$1/root"/.ssh/authorized_keys
}

make_image() (
    # In memory, because dpkg waits for the disk after every file.
    work=$(mktemp -d)
    trap 'umount "$work"; rmdir "$work"' EXIT
    mount -t tmpfs -o mode=755 board "$work"
    rm -rf "$image.new"
    mkdir -p "$image.new" "$work/debs"
    image_root "$work/root"
    image_fetch "$work/root" "$work/debs"
    image_exchange "$work/root" "$work/debs"
    image_verify "$work/root"
    image_kernel "$work/root" "$work/debs"
    image_configure "$work/root"
    truncate -s 1G "$image.new/disk"
    mke2fs -q -t ext4 -L station -d "$work/root" "$image.new/disk"
    mark_current "$image.new" "${image_sources[@]}"
    rm -rf "$image"
    mv "$image.new" "$image"
)
