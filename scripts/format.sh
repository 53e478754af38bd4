#!/bin/bash
# Formats every source file; with --check changes nothing and fails when a file is not formatted.
# usage: scripts/format.sh [--check]
set -euo pipefail
. "$(dirname "$0")/support/usage.bash"
cd "$(dirname "$0")/.."

mapfile -t files < <(git ls-files -- '*.cpp' '*.h')
case ${1:-} in
    '') clang-format -i "${files[@]}" ;;
    --check)
        clang-format --dry-run -Werror "${files[@]}"
        echo "format: ${#files[@]} files are in order"
        ;;
    *) refuse ;;
esac
