#!/bin/bash
# Builds every fuzz target with clang and runs each against its kept corpus.
# usage: scripts/fuzz.sh [SECONDS [NAME...]]     (60 seconds each; every target when no name is given)
# What a run finds beyond the kept corpus goes to build/fuzz/found/<name>, an input that fails to
# build/fuzz/failed/<name>; a target that fails ends the script with an error once all have run.
set -euo pipefail
. "$(dirname "$0")/support/usage.bash"
cd "$(dirname "$0")/.."

seconds=${1:-60}
[ $# -eq 0 ] || shift
scripts/setup.sh
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz --target fuzz/all
programs=build/fuzz/fuzz/programs
names=("$@")
[ ${#names[@]} -gt 0 ] || mapfile -t names < <(ls "$programs")

status=0
for name in "${names[@]}"; do
    found=build/fuzz/found/$name
    failed=build/fuzz/failed/$name
    log=build/fuzz/$name.log
    mkdir -p "$found" "$failed"
    # A single input that takes 10 s is a hang.
    if "$programs/$name" -max_total_time="$seconds" -timeout=10 -max_len=4096 -print_final_stats=1 \
        -artifact_prefix="$failed/" "$found" "fuzz/$name/corpus" >/dev/null 2>"$log"; then
        executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
        corpus=$(find "fuzz/$name/corpus" -type f | wc -l)
        printf '%-12s %10s executions in %s s, %s kept inputs\n' "$name" "$executions" "$seconds" "$corpus"
    else
        status=1
        printf '%-12s FAILED\n' "$name"
        tail -n 60 "$log"
    fi
done
exit $status
