#!/bin/bash
# Sets up, builds and shows the whole system at work: the real service in a sandbox, a simulated chip and
# phone, and a CoAP application. With --stay it leaves the station running and prints what to try.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh
cmake --preset release >/dev/null
cmake --build --preset release --target BriscaService efr32sim_program chp brisca-phone
exec tools/demo/tour.sh build/release/bin "$@"
