#!/bin/bash
# The unit as systemd sees it: valid, exposed no more than 2.0 of 10, and the chip is held in reset after its end.
# usage: unit.sh SERVICE-BINARY
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
packaging=$here/../../packaging
readonly kLargestExposure=20 # tenths

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# The installed path does not exist here; everything else is checked as it stands.
sed "s|/usr/libexec/brisca/BriscaService|$1|" "$packaging/brisca.service" >"$work/brisca.service"
systemd-analyze verify --man=no "$work/brisca.service"
systemd-analyze security --offline=true --threshold=$kLargestExposure "$work/brisca.service" | tail -n 1

# shellcheck disable=SC2016
"$here/../support/sandbox.sh" bash -c 'line=/dev/evse/io_efr32_reset; printf 1 >$line; eval "$1"; [ "$(od -An -c $line)" = "   0" ]' \
    - "$(sed -n 's/^ExecStopPost=//p' "$packaging/brisca.service")"
