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

say() { printf '\n== %s\n' "$*"; }
