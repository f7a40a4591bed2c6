# Helpers of the test scripts, to be sourced. A script counts its failures and ends with `finish`.
set -uo pipefail

# A sanitizer's finding must not look like the status 1 of a scene that cannot be rendered.
export ASAN_OPTIONS=${ASAN_OPTIONS:+$ASAN_OPTIONS:}exitcode=99
export UBSAN_OPTIONS=${UBSAN_OPTIONS:+$UBSAN_OPTIONS:}exitcode=99

failures=0
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

fail() {
    echo "FAILED: $*" >&2
    failures=$((failures + 1))
}

# expect_status WANTED TEXT COMMAND...: runs the command, output into $scratch/stdout and $scratch/stderr. More than a
# minute counts as a hang, also of a program that takes the signal as a wish to stop soon.
expect_status() {
    local wanted=$1 text=$2 status=0
    shift 2
    timeout -k 5 60 "$@" >"$scratch/stdout" 2>"$scratch/stderr" || status=$?
    [ "$status" = "$wanted" ] && return
    fail "$text: status $status instead of $wanted"
    tail -n 5 "$scratch/stderr" >&2
}

# expect_text FILE PATTERN TEXT: the file has a line that matches.
expect_text() { grep -qE -- "$2" "$1" || fail "$3: no line '$2' in $(basename "$1")"; }

# expect_empty FILE TEXT
expect_empty() { [ ! -s "$1" ] || fail "$2: $(basename "$1") says '$(head -n 1 "$1")'"; }

finish() {
    [ "$failures" = 0 ] && exit 0
    echo "$failures checks failed" >&2
    exit 1
}
