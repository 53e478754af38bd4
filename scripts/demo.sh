#!/bin/bash
# Sets up, builds and shows the whole system at work: the real service in a sandbox, a simulated chip and
# phone, and a CoAP application. With --stay it leaves the station running and prints what to try. Its logs go to
# build/demo/logs.
# usage: scripts/demo.sh [--stay]
set -euo pipefail
. "$(dirname "$0")/support/usage.bash"
cd "$(dirname "$0")/.."

case ${1:-} in
    '' | --stay) ;;
    *) refuse ;;
esac
scripts/setup.sh demo
cmake --preset demo >/dev/null
cmake --build --preset demo --target BriscaService briscactl efr32sim_program chp brisca-phone unit-stand-in
exec tools/demo/tour.sh build/demo/bin "$@"
