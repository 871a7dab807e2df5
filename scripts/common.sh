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
