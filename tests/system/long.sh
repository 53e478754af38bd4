#!/bin/bash
# The long form of the stop, crash, watchdog and silent-chip tests: the first two so many times.
# usage: tests/system/long.sh [ROUNDS] [PRESET]     (50 rounds of the release build when nothing is given)
set -euo pipefail
cd "$(dirname "$0")/../.."

preset=${2:-release}
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset" --target system_test
BRISCA_ROUNDS=${1:-50} ctest --preset "$preset" -L system -R 'Stop|FatalSignal|Watchdog|FallsSilent' -j "$(nproc)"
