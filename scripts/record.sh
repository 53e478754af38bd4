#!/bin/bash
# Plays the demo in a terminal of its own and keeps what it shows as an animated picture, docs/demo.svg.
# usage: scripts/record.sh
set -euo pipefail
. "$(dirname "$0")/support/usage.bash"
cd "$(dirname "$0")/.."
[ $# -eq 0 ] || refuse

scripts/setup.sh
scripts/demo.sh >/dev/null # builds it, and shows that it works
export TERM=xterm-256color LANG=C.UTF-8
# Frames of 100 ms to 3 s; the last one stays for 6 s. The recorder wants a terminal.
script --quiet --return --command \
    'termtosvg docs/demo.svg -g 100x30 -m 100 -M 3000 -D 6000 -t gjm8 -c "tools/demo/tour.sh build/demo/bin"' \
    /dev/null </dev/null
sed -i '0,/<svg /s//<svg xml:space="preserve" /' docs/demo.svg # for viewers that know no style sheets
