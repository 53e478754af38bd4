#!/bin/bash
# Installs the Debian packages that building, testing, measuring and demonstrating this project need.
# Needs root, or sudo. Packages that are there already are left alone.
# usage: scripts/setup.sh [all|demo|test|cross|board]
# all (when nothing is given): everything but cross and board; demo: what scripts/demo.sh needs; test: what
# building, testing, measuring and packaging need, without linters and fuzzing; cross: only what building for the
# station's own processor needs beside the rest; board: what the emulated station needs (scripts/board.sh).
set -euo pipefail
. "$(dirname "$0")/support/usage.bash"

build=(g++ cmake ninja-build pkg-config ccache git qtbase5-dev libsystemd-dev)
sandbox=(bubblewrap dbus-daemon libglib2.0-bin systemd)
tests=(libgtest-dev libgmock-dev lrzsz python3)
lint=(clang clang-format clang-tidy libclang-rt-14-dev shellcheck)
docs=(graphviz fonts-dejavu-core termtosvg)
bench=(libbenchmark-dev libspdlog-dev valgrind)
tools=(libcoap3-dev libboost-dev)
packaging=(dpkg-dev lintian debootstrap systemd-container)
cross=(g++-arm-linux-gnueabihf)
board=(qemu-system-arm qemu-utils debootstrap e2fsprogs kmod cpio openssh-client socat)

demo=("${build[@]}" "${sandbox[@]}" "${tools[@]}")
test=("${demo[@]}" "${tests[@]}" "${bench[@]}" "${packaging[@]}")
case ${1:-all} in
    all) wanted=("${test[@]}" "${lint[@]}" "${docs[@]}") ;;
    demo) wanted=("${demo[@]}") ;;
    test) wanted=("${test[@]}") ;;
    cross) wanted=("${cross[@]}") ;;
    board) wanted=("${board[@]}") ;;
    *) refuse ;;
esac
missing=()
for package in "${wanted[@]}"; do
    state=$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null || true)
    [ "$state" = installed ] || missing+=("$package")
done
[ ${#missing[@]} -gt 0 ] || exit 0

as_root=()
if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || { echo "setup: run as root, or install sudo" >&2; exit 1; }
    as_root=(sudo)
fi
echo "setup: installing ${missing[*]}"
"${as_root[@]}" apt-get update -qq
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends \
    "${missing[@]}" >/dev/null
