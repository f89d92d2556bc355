# shellcheck shell=bash
# Sourced by ./demo, ./check and .ci/run, which have changed to the project's root before.

say() { printf '\n== %s\n' "$*"; }
die() { printf '%s: %s\n' "${0##*/}" "$*" >&2; exit 1; }

# Installs what is missing of the packages that the given lists in scripts/ name. Without a missing one it asks
# dpkg only: a second run is quick and needs neither network nor rights.
ensure_packages() {
    local wanted missing sudo=()
    wanted=$(cd scripts && sed 's/#.*//' "$@" | sort -u | xargs)
    command -v apt-get >/dev/null ||
        die "this script installs packages by apt, which is not here. What the build needs, in Debian's names: $wanted"
    # shellcheck disable=SC2086  # the list is meant to be split
    missing=$(comm -23 <(tr ' ' '\n' <<<"$wanted") <(dpkg-query -W -f '${db:Status-Status} ${Package}\n' $wanted \
        2>/dev/null | sed -n 's/^installed //p' | sort -u) | xargs)
    [ -n "$missing" ] || return 0

    if [ "$(id -u)" != 0 ]; then
        command -v sudo >/dev/null ||
            die "packages are missing, and neither root nor sudo is here to install them. As root: apt-get install $missing"
        sudo=(sudo)
        [ -t 0 ] || sudo=(sudo -n)
        "${sudo[@]}" true || die "sudo is refused. As root: apt-get install $missing"
    fi
    say "Installing by apt${sudo:+ (with sudo)}: $missing"
    "${sudo[@]}" apt-get update -qq || die "apt-get update failed"
    # shellcheck disable=SC2086
    "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq -o Dpkg::Use-Pty=0 --no-install-recommends $missing </dev/null ||
        die "apt-get install failed"
}

# build PRESET [TARGET ...]: configures and builds, all targets of the preset if none is named.
build() {
    local preset=$1
    shift
    export CCACHE_BASEDIR=$PWD CCACHE_NOHASHDIR=1
    say "Building (preset $preset)"
    cmake --log-level=NOTICE --preset "$preset" || die "configuring failed"
    cmake --build --preset "$preset" ${1:+--target "$@"} || die "the build failed"
}
