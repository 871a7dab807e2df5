# shellcheck shell=bash
# What the scripts share. Sourced, never run.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# Prints the comment at the head of the calling script for --help, and ends it.
help_on_request() {
    case "${1:-}" in
        -h | --help)
            sed -n '2,/^[^#]/{s/^# \{0,1\}//p}' "$0"
            exit 0
            ;;
    esac
}

# For installing, as root or through sudo.
run_as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    elif command -v sudo >/dev/null; then
        sudo "$@"
    else
        echo "$(basename "$0"): needs root or sudo for: $*" >&2
        return 1
    fi
}

say() { printf '\n== %s\n' "$*"; }

# Makes a Python environment with the package vexa, of the release build, in a directory: DIRECTORY/bin/python.
python_with_vexa() {
    local source=build/python-source # always the same, for the cache of compilations, and not the checkout's own
    scripts/setup python3-dev python3-venv python3-pip python3-setuptools python3-wheel python3-pybind11 pybind11-dev
    /usr/bin/python3 -m venv --system-site-packages "$1"
    rm -rf "$source"
    cp -r bindings/python "$source"
    rm -rf "$source/build"
    if command -v ccache >/dev/null; then export CC="ccache gcc" CXX="ccache g++"; fi
    VEXA_BUILD=$PWD/build "$1/bin/python" -m pip install -q --no-build-isolation --no-index "$source"
    export LD_LIBRARY_PATH=$PWD/build/lib
}
