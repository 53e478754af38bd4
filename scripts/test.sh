#!/bin/bash
# Sets up, configures, builds and runs every test; ends with CTest's summary.
# usage: scripts/test.sh [release|debug|asan|tsan] [CTEST-OPTION...]     (release when nothing is given)
set -euo pipefail
. "$(dirname "$0")/support/usage.bash"
cd "$(dirname "$0")/.."

preset=${1:-release}
[ $# -eq 0 ] || shift
scripts/setup.sh test
targets=()
[[ " $* " != *" -L unit "* ]] || targets=(--target unit_tests)
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset" "${targets[@]}"
ctest --preset "$preset" -j "$(nproc)" "$@"
