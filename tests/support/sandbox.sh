#!/bin/bash
# Runs a command with /tmp, /evse, /dev and /dev/evse of its own, and everything else read-only, so that
# programs which use the station's fixed paths can run side by side on any machine.
# usage: sandbox.sh COMMAND [ARGUMENT...]
# BRISCA_SANDBOX_BIND: directories (separated by ':') that stay shared and writable.
# BRISCA_SANDBOX_ARGUMENTS: further options of bwrap, separated by blanks.
set -euo pipefail

arguments=(--unshare-pid --die-with-parent --tmpfs / --proc /proc --dev /dev)
for directory in /bin /etc /home /lib /lib32 /lib64 /opt /root /sbin /srv /sys /usr /var; do
    if [ -L "$directory" ]; then
        arguments+=(--symlink "$(readlink "$directory")" "$directory")
    elif [ -d "$directory" ]; then
        arguments+=(--ro-bind "$directory" "$directory")
    fi
done
arguments+=(--perms 1777 --tmpfs /tmp --tmpfs /run --dir /evse/data --dir /evse/app/bin --dir /dev/evse)
# The build and source trees may lie anywhere, also below /tmp.
here=$(cd "$(dirname "$0")/../.." && pwd)
arguments+=(--bind "$here" "$here")
IFS=: read -ra shared <<<"${BRISCA_SANDBOX_BIND:-}"
for directory in "${shared[@]}"; do
    arguments+=(--bind "$directory" "$directory")
done
read -ra further <<<"${BRISCA_SANDBOX_ARGUMENTS:-}"
arguments+=("${further[@]}")
exec bwrap "${arguments[@]}" --chdir "$PWD" "$@"
