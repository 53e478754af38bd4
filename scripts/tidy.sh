#!/bin/bash
# Runs clang-tidy, warnings as errors, over every source of the service and its tools, or over those that are named.
# usage: scripts/tidy.sh [FILE...]
set -euo pipefail
. "$(dirname "$0")/support/usage.bash"
cd "$(dirname "$0")/.."

files=("$@")
[ $# -gt 0 ] || mapfile -t files < <(git ls-files -- 'src/*.cpp' 'tools/*.cpp')
scripts/setup.sh
cmake --preset release >/dev/null
# The option: sources that unit suites compile, too, carry warning options that only GCC knows.
printf '%s\0' "${files[@]}" | xargs -0 -P "$(nproc)" -n 1 \
    clang-tidy -p build/release --quiet --extra-arg=-Wno-unknown-warning-option
echo "tidy: ${#files[@]} files are in order"
