#!/bin/bash
# The unit as systemd sees it: valid, and exposed no more than 2.0 of 10.
# usage: unit.sh SERVICE-BINARY
set -euo pipefail
packaging=$(cd "$(dirname "$0")/../../packaging" && pwd)
readonly kLargestExposure=20 # tenths

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# The installed path does not exist here; everything else is checked as it stands.
sed "s|/usr/libexec/brisca/BriscaService|$1|" "$packaging/brisca.service" >"$work/brisca.service"
systemd-analyze verify --man=no "$work/brisca.service"
systemd-analyze security --offline=true --threshold=$kLargestExposure "$work/brisca.service" | tail -n 1
