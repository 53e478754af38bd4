# What the scripts for the station's own processor share; to be sourced.
# Everything that they fetch or make lies in one folder, so that it can be kept between runs or removed.
cache=${XDG_CACHE_HOME:-$HOME/.cache}/brisca-service/armhf
sysroot=$cache/sysroot
triple=arm-linux-gnueabihf
apt_options=(-oAPT::Architecture=armhf -oAPT::Architectures=armhf -oAPT::Sandbox::User=root -oDebug::NoLocking=1
    -oDir::Etc::SourceList="$cache/sources.list" -oDir::Etc::SourceParts=/dev/null -oDir::State::status=/dev/null
    -oDir::State::Lists="$cache/lists" -oDir::Cache="$cache/apt")

# An apt of our own that sees an empty armhf system; the machine's apt and dpkg are neither changed nor asked.
apt_armhf() { apt-get "${apt_options[@]}" -qq "$@"; }

# apt_armhf_update: fetches the lists, from the mirror and the release that the machine's apt uses.
apt_armhf_update() {
    mkdir -p "$cache/lists/partial" "$cache/apt/archives/partial"
    apt-get indextargets 'Created-By: Packages' 'Label: Debian' --format \
        'deb [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] $(REPO_URI) $(RELEASE) $(COMPONENT)' |
        sort -u >"$cache/sources.list"
    apt_armhf update
}

# is_current FOLDER FILE...: whether FOLDER was made from these FILEs as they are now; mark_current notes it.
is_current() { [ "$(cat "$1/.made-from" 2>/dev/null)" = "$(cat "${@:2}" | sha256sum)" ]; }
mark_current() { cat "${@:2}" | sha256sum >"$1/.made-from"; }
