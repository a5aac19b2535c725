# Sourced by the end-to-end scripts: counted checks, waits that stretch with the machine, and the
# tally that ends a script.

passed=0 failed=0

# check "<what must hold>" command…: runs the command and counts it.
check() {
    local description="$1"
    shift
    if "$@"; then passed=$((passed + 1)) && echo "ok: $description"
    else failed=$((failed + 1)) && echo "FAILED: $description"; fi
}

# wait_for <seconds> command…: retries the command until it succeeds, for up to that many seconds
# times VANTREL_TEST_TIMEOUT_FACTOR (a sanitizer build runs slower).
wait_for() {
    local deadline=$((SECONDS + $1 * ${VANTREL_TEST_TIMEOUT_FACTOR:-1}))
    shift
    until "$@"; do
        [ "$SECONDS" -lt "$deadline" ] || return 1
        sleep 0.1
    done
}

# finish "<name>": prints the tally; the script's status is whether every check held.
finish() {
    echo "$1: $passed passed, $failed failed"
    [ "$failed" -eq 0 ]
}
