#!/bin/bash
# Builds the benchmarks as shipped code is built and prints their tables.
# usage: scripts/bench.sh [NAME...]     (every benchmark of bench/ when nothing is given: btp, log, ...)
set -euo pipefail
. "$(dirname "$0")/support/usage.bash"
cd "$(dirname "$0")/.."

scripts/setup.sh test
cmake --preset release >/dev/null
cmake --build --preset release --target bench/all
programs=build/release/bench/programs
names=("$@")
[ ${#names[@]} -gt 0 ] || mapfile -t names < <(ls "$programs")
for name in "${names[@]#bench_}"; do
    [ -x "$programs/bench_$name" ] || refuse
    printf '\n== %s\n' "$name"
    tests/support/sandbox.sh "$PWD/$programs/bench_$name"
done
