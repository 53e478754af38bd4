#!/bin/bash
# The tool's own help, its manual and its completion name the same verbs and options.
# usage: tool.sh BRISCACTL
set -euo pipefail
tool=$1
packaging=$(cd "$(dirname "$0")/../../packaging" && pwd)
manual=$packaging/man/briscactl.1
failures=0

same() { # same WHAT EXPECTED FOUND: both are words in any order, and some
    if [ -z "$2" ] || ! diff <(printf '%s\n' $2 | sort -u) <(printf '%s\n' $3 | sort -u); then
        echo "FAILED: $1"
        failures=$((failures + 1))
    fi
}
verbs() { "$tool" --help | sed -n 's/^  \([a-z]\+\).*/\1/p'; }
options() { "$tool" "$@" --help | sed -n 's/^  \(--[a-z]*\) .*/\1/p'; }
all_options() { for verb in $(verbs); do options "$verb"; done; }
completes() { # completes LAST WORD...: what the last one may become behind the others
    (
        compopt() { :; }
        . "$packaging/briscactl.bash-completion"
        COMP_WORDS=("${@:2}" "$1") COMP_CWORD=$(($# - 1))
        _briscactl
        echo "${COMPREPLY[*]}"
    )
}

same "verbs of the manual" "$(verbs)" "$(sed -n 's/^\.It Ic \([a-z]*\).*/\1/p' "$manual")"
same "options of the manual" "$(all_options)" "$(grep -o 'Fl -[a-z]*' "$manual" | sed 's/Fl -/--/')"
same "verbs of the completion" "$(verbs) $(options)" "$(completes '' briscactl)"
for verb in $(verbs); do
    same "options of $verb in the completion" "$(options "$verb")" "$(completes -- briscactl "$verb")"
done
same "the second word of log" check "$(completes ch briscactl log)"
same "states" FIRMWARE "$(completes F briscactl restart --wait)"
[ "$failures" -eq 0 ]
