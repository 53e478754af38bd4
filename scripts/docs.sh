#!/bin/bash
# Draws the pictures of docs/pictures: the floors from the CMake files, each other from the text beside it.
# usage: scripts/docs.sh [--check]
# --check: changes nothing; fails when a picture is not what its source gives, when a document names a file that
# is not there, or when a script does not answer --help.
set -euo pipefail
. "$(dirname "$0")/support/usage.bash"
cd "$(dirname "$0")/.."
style=(-Gfontname="DejaVu Sans" -Nfontname="DejaVu Sans" -Efontname="DejaVu Sans" -Gfontsize=11 -Nfontsize=11
    -Efontsize=9 -Nheight=0.3 -Ecolor="#555555")

# An arrow leads from a floor to one that it uses; what follows from other arrows is left out.
floors() {
    local file name folder
    echo 'digraph { node [shape=box, style="rounded,filled", fillcolor="#eef4fb"];'
    git ls-files 'src/*CMakeLists.txt' | while read -r file; do
        name=$(grep -oP '(brisca_floor|add_executable)\(\K\w+' "$file")
        folder=${file%/*}
        printf '%s [label="%s\\n%s"];\n' "$name" "$name" "${folder/*\/BriscaService\//.../}"
        tr '\n' ' ' <"$file" | grep -oP '(FLOORS|link_floors\(BriscaService) [a-z_ ]*' | grep -oP '\bbrisca_\w+' |
            sed "s/.*/$name -> &;/" || true # the lowest uses none
    done
    echo '}'
}
draw() { # PICTURE: to standard output
    case $1 in
        docs/pictures/floors.svg) floors | tred ;;
        *) cat "${1%.svg}.dot" ;;
    esac | dot "${style[@]}" -Tsvg
}

# Links between the documents, and paths in backticks.
missing_files() {
    local document file
    git ls-files '*.md' | while read -r document; do
        {
            grep -oP '\]\(\K[^)#:]+(?=[)#])' "$document" | sed "s,^,$(dirname "$document")/,"
            grep -oP '`\K(bench|cmake|docs|fuzz|packaging|scripts|src|tests|tools)/[a-z0-9][\w./-]*' "$document"
        } | while read -r file; do [ -e "$file" ] || echo "docs: $document names $file"; done
    done
}

silent_scripts() {
    local script
    for script in scripts/*.sh; do
        [[ $("$script" --help) == *"usage: $script"* ]] || echo "docs: $script --help tells no usage"
    done
}

pictures=(docs/pictures/floors.svg)
for source in docs/pictures/*.dot; do pictures+=("${source%.dot}.svg"); done
case ${1:-} in
    '') for picture in "${pictures[@]}"; do draw "$picture" >"$picture"; done ;;
    --check)
        for picture in "${pictures[@]}"; do
            cmp "$picture" <(draw "$picture") || { echo "docs: run scripts/docs.sh" >&2; exit 1; }
        done
        faults=$(missing_files; silent_scripts)
        [ -z "$faults" ] || { echo "$faults" >&2; exit 1; }
        ;;
    *) refuse ;;
esac
