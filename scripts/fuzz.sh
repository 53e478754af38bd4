#!/bin/bash
# Builds every fuzz target with clang and runs each against its kept corpus.
# usage: scripts/fuzz.sh [SECONDS [NAME...]]     (60 seconds each; every target when no name is given)
# What a run finds beyond the kept corpus goes to build/fuzz/found/<name>, an input that fails to
# build/fuzz/failed/<name>; a target that fails ends the script with an error once all have run. As many run at
# once as there are processors.
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

fuzz_one() { # NAME
    local name=$1 found=build/fuzz/found/$1 failed=build/fuzz/failed/$1 log=build/fuzz/$1.log executions corpus
    mkdir -p "$found" "$failed"
    # A single input that takes 10 s is a hang.
    if "$programs/$name" -max_total_time="$seconds" -timeout=10 -max_len=4096 -print_final_stats=1 \
        -artifact_prefix="$failed/" "$found" "fuzz/$name/corpus" >/dev/null 2>"$log"; then
        executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
        corpus=$(find "fuzz/$name/corpus" -type f | wc -l)
        printf '%-12s %10s executions in %s s, %s kept inputs\n' "$name" "$executions" "$seconds" "$corpus"
    else
        printf '%-12s FAILED\n%s\n' "$name" "$(tail -n 60 "$log")"
        return 1
    fi
}
export -f fuzz_one
export programs seconds
printf '%s\0' "${names[@]}" | xargs -0 -P "$(nproc)" -n 1 bash -c 'fuzz_one "$1"' fuzz
