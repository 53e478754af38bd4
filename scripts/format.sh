#!/bin/bash
# Formats every source file; with --check changes nothing and fails when a file is not formatted.
set -euo pipefail
cd "$(dirname "$0")/.."

mapfile -t files < <(git ls-files -- '*.cpp' '*.h')
if [ "${1:-}" = --check ]; then
    clang-format --dry-run -Werror "${files[@]}"
    echo "format: ${#files[@]} files are in order"
else
    clang-format -i "${files[@]}"
fi
