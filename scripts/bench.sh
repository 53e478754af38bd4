#!/bin/bash
# Builds the benchmarks as shipped code is built and prints their tables.
# usage: scripts/bench.sh [NAME...]     (every benchmark when nothing is given)
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh
cmake --preset release >/dev/null
cmake --build --preset release
programs=build/release/bench/programs
names=("$@")
[ ${#names[@]} -gt 0 ] || mapfile -t names < <(ls "$programs")
for name in "${names[@]}"; do
    printf '\n== %s\n' "$name"
    tests/support/sandbox.sh "$PWD/$programs/$name"
done
