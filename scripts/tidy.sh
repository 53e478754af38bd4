#!/bin/bash
# Runs clang-tidy, warnings as errors, over every source of the service and its tools, or over those that are named.
# usage: scripts/tidy.sh [FILE...]
#        scripts/tidy.sh --changed SECONDS
# --changed: the sources that the commits since $BRISCA_BASE have touched, or without it those of the day that ends
# with the newest commit; a header stands for the source of its name. The one changed last comes first, and what is
# not begun within that time is left out.
set -euo pipefail
. "$(dirname "$0")/support/usage.bash"
cd "$(dirname "$0")/.."

changed() {
    local commits=(HEAD "--since=$(($(git log -1 --format=%ct) - 86400))")
    [ -z "${BRISCA_BASE:-}" ] || commits=("$BRISCA_BASE..HEAD")
    git log --format= --name-only "${commits[@]}" -- src tools | sed -n 's/\.\(cpp\|h\)$/.cpp/p' | awk '!seen[$0]++' |
        while read -r file; do [ ! -e "$file" ] || echo "$file"; done
}

seconds=
case ${1:-} in
    --changed)
        seconds=${2:-}
        [[ $seconds =~ ^[0-9]+$ ]] || refuse
        list=$(changed)
        ;;
    '') list=$(git ls-files -- 'src/*.cpp' 'tools/*.cpp') ;;
    *) list=$(printf '%s\n' "$@") ;;
esac
scripts/setup.sh
cmake --preset release >/dev/null
deadline=${seconds:+$((EPOCHSECONDS + seconds))}

# The option: sources that unit suites compile, too, carry warning options that only GCC knows.
tidy_one() { # FILE
    if [ -n "$deadline" ] && [ "$EPOCHSECONDS" -ge "$deadline" ]; then
        echo "tidy: no time for $1"
    else
        clang-tidy -p build/release --quiet --extra-arg=-Wno-unknown-warning-option "$1"
    fi
}
export -f tidy_one
export deadline
log=build/release/tidy.log
sed '/^$/d' <<<"$list" | xargs -d '\n' -r -P "$(nproc)" -n 1 bash -c 'tidy_one "$1"' tidy | tee "$log"
total=$(grep -c . <<<"$list" || true)
left=$(grep -c '^tidy: no time for' "$log" || true)
echo "tidy: no finding in $((total - left)) of $total sources"
