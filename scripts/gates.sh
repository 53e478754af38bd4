#!/bin/bash
# Counts with valgrind what the code costs and compares that with docs/counts.md; fails when a count has grown by
# more than 3 %.
# usage: scripts/gates.sh [--update]
# --update: writes the counts to docs/counts.md.
set -euo pipefail
. "$(dirname "$0")/support/usage.bash"
cd "$(dirname "$0")/.."
case ${1:-} in '' | --update) ;; *) refuse ;; esac

readonly kept=docs/counts.md out=$PWD/build/release/gates
if [ "$(uname -m)" != x86_64 ]; then
    echo "gates: $kept holds what was counted on x86-64; nothing is compared here"
    exit 0
fi
scripts/setup.sh test
cmake --preset release >/dev/null
cmake --build --preset release --target bench_gates bench_start
rm -rf "$out"
mkdir -p "$out"

# under TOOL SUBJECT OPTION...: the command for one run under valgrind. It writes to a pipe, because the C library
# sizes its buffer for a file by the file system.
under() {
    local tool=$1 subject=$2
    shift 2
    env -i "PATH=$PATH" tests/support/sandbox.sh "${driver[@]}" valgrind -q --vgdb=no "--tool=$tool" \
        "--$tool-out-file=$out/$subject.$tool" "$@" "${counted[@]}" |& cat >"$out/$subject.log" ||
        { cat "$out/$subject.log"; exit 1; }
}

# Of the code of one program, without the libraries that it calls: instructions, calls into libraries; and
# allocations, whoever asks for them. What happens within a library differs between machines.
profile() { # PROGRAM PROFILE
    awk -v program="/$1\$" '
        /^ob=/ { object = substr($0, 4) }
        /^cob=/ { callee = substr($0, 5) }
        /^cfn=/ { name = substr($0, 5) }
        /^calls=/ {
            split(substr($0, 7), calls, " ")
            if (object ~ program && callee != "" && callee !~ program) left += calls[1]
            if (name ~ /^(malloc|calloc|realloc|aligned_alloc|posix_memalign)($|[^a-z_])/) allocations += calls[1]
            callee = ""
            getline
            next
        }
        /^[0-9]/ && object ~ program { instructions += $2 }
        END { print instructions + 0, left + 0, allocations + 0 }' "$2"
}
peak() { awk -F= '/^mem_heap_B=/ && $2 > most { most = $2 } END { print most + 0 }' "$1"; }

count() { # SUBJECT
    local subject=$1 program=bench_gates driver=() counted=("$PWD/build/release/bench/gates/bench_gates" "$1")
    local window=(--zero-before=counted --dump-after=counted)
    if [ "$subject" = start ]; then
        program=BriscaService driver=("$PWD/build/release/bench/gates/bench_start") counted=()
        window=('--dump-before=Systemd::ready*')
    fi
    under callgrind "$subject" --compress-strings=no --compress-pos=no "${window[@]}"
    under massif "$subject" --peak-inaccuracy=0
    [ -s "$out/$subject.callgrind.1" ] || { echo "gates: what $subject counts was never reached" >&2; exit 1; }
    echo "$subject $(profile "$program" "$out/$subject.callgrind.1") $(peak "$out/$subject.massif")"
}

subjects=$(awk -F'`' '/^\| `/ { print $2 }' "$kept")
[ -n "$subjects" ] || { echo "gates: no table in $kept" >&2; exit 1; }
for subject in $subjects; do count "$subject"; done >"$out/counts"

if [ "${1:-}" = --update ]; then
    awk 'NR == FNR { count[$1] = $2 " | " $3 " | " $4 " | " $5; next }
         split($0, word, "`") && /^\| `/ { split($0, cell, " \\| "); $0 = cell[1] " | " cell[2] " | " count[word[2]] " |" }
         { print }' "$out/counts" "$kept" >"$out/kept"
    cp "$out/kept" "$kept"
    exit
fi
awk -F'[ |]+' '
    BEGIN { split("instructions|library calls|allocations|peak heap", what, "|") }
    NR == FNR { for (i = 1; i <= 4; ++i) now[$1, i] = $(i + 1); next }
    split($0, word, "`") && /^\| `/ {
        for (i = 1; i <= 4; ++i) {
            was = $(NF - 5 + i); is = now[word[2], i]
            grown = is > was * 1.03
            failed = failed || grown
            if (is != was) printf "%-10s %-14s %8d, was %8d%s\n", word[2], what[i], is, was, grown ? "  GROWN" : ""
        }
    }
    END { exit failed }' "$out/counts" "$kept" ||
    { echo "gates: more than 3 % above $kept; what is worth it is kept with --update" >&2; exit 1; }
echo "gates: nothing has grown by more than 3 %"
