# What every script answers to --help: the comment at its own head. To be sourced with the script's arguments,
# before anything changes the working directory.
usage=$(sed -n '2,/^[^#]/s/^# \?//p' "$0")
for argument in "$@"; do
    if [ "$argument" = --help ]; then
        echo "$usage"
        exit 0
    fi
done

# refuse: for arguments that the script does not know.
refuse() {
    echo "$usage" >&2
    exit 2
}
