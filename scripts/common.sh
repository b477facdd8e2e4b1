# Shared by ./demo and ./check; sourced with the project's root as the working directory.

say() {
    printf '\033[1m== %s\033[0m\n' "$*"
}

die() {
    printf '%s: %s\n' "$(basename "$0")" "$*" >&2
    exit 1
}

as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    elif command -v sudo >/dev/null; then
        sudo "$@"
    else
        die "needs root or sudo to install packages: $*"
    fi
}

# Installs the packages of scripts/packages that are not there yet.
install_packages() {
    local missing=() name
    while read -r name; do
        case "$name" in '' | '#'*) continue ;; esac
        dpkg-query -W -f '${Status}' "$name" 2>/dev/null | grep -q 'ok installed' || missing+=("$name")
    done <scripts/packages
    [ ${#missing[@]} -eq 0 ] && return
    command -v apt-get >/dev/null || die "not a Debian system; install by hand: ${missing[*]}"
    say "installing ${missing[*]}"
    as_root apt-get update -q
    as_root env DEBIAN_FRONTEND=noninteractive apt-get install -q -y --no-install-recommends "${missing[@]}"
}

# Configures and builds a preset; the steps are shown as they come, their noise only when they fail.
build_preset() {
    say "building preset $1 (the first time takes a few minutes)"
    local log
    log=$(mktemp)
    cmake --preset "$1" >"$log" 2>&1 || {
        cat "$log" >&2
        rm -f "$log"
        die "configuring $1 failed"
    }
    rm -f "$log"
    cmake --build --preset "$1"
}
