#!/bin/bash
# Runs the long form of every endurance test and prints what each cost the machine.
# usage: scripts/endurance.sh [PRESET [FILTER]]     (the release build and every test when nothing is given)
# System runs the stops and crashes of the whole service 50 times, and the watchdog of an upload and the silent chip
# at their real pace; it prints no figures.
# SingleFault strikes every byte of a session, at the pace of a real station, and prints a table of its own.
# Chaos lasts 30 s a round; run it under a sanitizer: scripts/endurance.sh asan Chaos
# A pair of figures is the one after the tenth round (half of the rounds below 20) and the one after the last.
set -uo pipefail
. "$(dirname "$0")/support/usage.bash"
cd "$(dirname "$0")/.." || exit 1

preset=${1:-release}
filter=${2:-.}
report=$PWD/build/$preset/endurance.txt

# TEST, as a regular expression of names, and its rounds.
tests=(
    'Reentry.ByRestart 300'
    'Reentry.ByDisabling 300'
    'Reentry.ByErrors 100'
    'Moments 25'
    'UploadMoment 25'
    'Neighbours 25'
    'Surroundings 25'
    'Chaos 20'
)

cmake --preset "$preset" >/dev/null && cmake --build --preset "$preset" --target endurance_test singlefault_test || exit 1
: >"$report"
status=0
for row in "${tests[@]}"; do
    read -r name rounds <<<"$row"
    [[ $name =~ $filter ]] || continue
    BRISCA_CHAOS_SECONDS=30 BRISCA_ENDURANCE_ROUNDS=$rounds BRISCA_ENDURANCE_REPORT=$report \
        ctest --test-dir "build/$preset" -R "endurance_test.*$name" --no-tests=error --output-on-failure \
        >"build/$preset/endurance-$name.log" 2>&1 || status=1
done
if [[ System =~ $filter ]]; then
    cmake --build --preset "$preset" --target system_test && BRISCA_ROUNDS=50 ctest --test-dir "build/$preset" -L system \
        -R 'Stop|FatalSignal|Watchdog|FallsSilent' -j "$(nproc)" >"build/$preset/endurance-System.log" 2>&1 || status=1
fi
format='%-44s %6s %6s %8s %9s %11s %9s %15s\n'
# shellcheck disable=SC2059
printf "$format" test rounds result repeated threads descriptors children 'resident kB'
while IFS='|' read -r test rounds result repeated threads descriptors children resident; do
    # shellcheck disable=SC2059
    printf "$format" "${test/LeadToTheRightStateAndTheNextRequestWorks\//}" "$rounds" "$result" "$repeated" \
        "$threads" "$descriptors" "$children" "$resident"
done <"$report"
# shellcheck disable=SC2016  # the dollars are awk's
tally='
function note(row, cell) {
    cell = row SUBSEP $3
    faults[cell]++
    served[cell] += $5 >= 0
    if ($5 > slowest[cell]) { slowest[cell] = $5; which[row, $3] = $2 ", " $4 }
}
function show(row, kind) {
    printf "%-48s", row
    for (kind = 1; kind <= kinds; kind++)
        printf " %4d /%4d %6d", served[row, names[kind]], faults[row, names[kind]], slowest[row, names[kind]]
    print ""
}
BEGIN {
    kinds = split("lost cut twice flipped stray", names, " ")
    printf "%-48s", "packet: served / faults, slowest in ms"
    for (kind = 1; kind <= kinds; kind++) printf " %17s", names[kind]
    print ""
}
$1 " " $2 != packet { if (packet != "") show(packet); packet = $1 " " $2 }
{ note(packet); note("all") }
END {
    show(packet)
    show("all")
    for (kind = 1; kind <= kinds; kind++) print "slowest of " names[kind] ": " which["all", names[kind]]
}'
if [[ SingleFault =~ $filter ]]; then
    log=build/$preset/endurance-SingleFault.log
    BRISCA_FAULTS_SAMPLE=0 BRISCA_FAULTS_PERIOD_MS=10000 BRISCA_FAULTS_PROCESSES=16 \
        "build/$preset/tests/endurance/singlefault_test" >"$log" 2>&1 || status=1
    # An outcome of -2: the packet never came.
    grep -E '^[0-9]+\|' "$log" | grep -v '|-2$' | sort -t'|' -nk1,1 | awk -F'|' "$tally"
fi
exit $status
