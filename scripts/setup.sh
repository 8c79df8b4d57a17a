# shellcheck shell=bash
# Read by ./run and ./test: installs missing packages, configures and builds. The caller is at the project's root.

# The packages of the groups named, from packages.txt.
packages_of() {
    local group line wanted=" $* "
    while IFS= read -r line; do
        line="${line%%#*}"
        line="${line//[[:space:]]/}"
        case "$line" in
        "") ;;
        "["*"]") group="${line:1:-1}" ;;
        *) [[ "$wanted" == *" $group "* ]] && printf '%s\n' "$line" ;;
        esac
    done <packages.txt | sort -u
}

# Installs what is missing of the groups named, and removes nothing. Asks for rights only when something is.
install_packages() {
    local missing=() package
    if ! command -v dpkg-query >/dev/null; then
        printf 'This is not a Debian system, so nothing is installed for you. Needed are the counterparts of:\n  %s\n' \
            "$(packages_of "$@" | tr '\n' ' ')" >&2
        return 0
    fi
    while IFS= read -r package; do
        # One line for each architecture that the package is there for; whether it is held back does not matter.
        dpkg-query -W -f '${db:Status-Status}\n' "$package" 2>/dev/null | grep -qx installed || missing+=("$package")
    done < <(packages_of "$@")
    [[ ${#missing[@]} -eq 0 ]] && return 0

    printf 'Installing %d missing packages: %s\n' "${#missing[@]}" "${missing[*]}"
    local as_root=()
    if [[ $EUID -ne 0 ]]; then
        if ! command -v sudo >/dev/null; then
            cannot_install "installing needs root, and there is no sudo" "${missing[@]}"
            return 1
        fi
        as_root=(sudo)
    fi
    local log
    log="$(mktemp)"
    if "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends --no-remove "${missing[@]}" >"$log" 2>&1 ||
        { "${as_root[@]}" apt-get update >>"$log" 2>&1 &&
            "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends --no-remove "${missing[@]}" >>"$log" 2>&1; }; then
        rm -f "$log"
        return 0
    fi
    tail -n 15 "$log" >&2
    rm -f "$log"
    cannot_install "apt-get failed, see above" "${missing[@]}"
    return 1
}

cannot_install() {
    local reason="$1"
    shift
    printf 'These packages are missing and cannot be installed (%s):\n  %s\nInstall them with:\n  sudo apt-get install %s\n' \
        "$reason" "$*" "$*" >&2
}

# configure_tree PRESET: quiet unless it fails.
configure_tree() {
    local log
    log="$(mktemp)"
    if ! cmake --preset "$1" >"$log" 2>&1; then
        cat "$log" >&2
        rm -f "$log"
        return 1
    fi
    rm -f "$log"
}

# compile_tree PRESET [TARGET...]: shows its progress to a terminal, and otherwise only what fails.
compile_tree() {
    local preset="$1" log
    shift
    if [[ -t 1 ]]; then
        cmake --build --preset "$preset" ${1:+--target "$@"}
        return
    fi
    log="$(mktemp)"
    if ! cmake --build --preset "$preset" ${1:+--target "$@"} >"$log" 2>&1; then
        tail -n 60 "$log" >&2
        rm -f "$log"
        return 1
    fi
    rm -f "$log"
}

# build_tree PRESET [TARGET...]: both.
build_tree() {
    configure_tree "$1" && compile_tree "$@"
}
