#!/usr/bin/env bash
# paths_that_ran_test.sh SCRIPT: what the script says of logs of tests.
set -euo pipefail
script=$1
log=$(mktemp)
trap 'rm -f "$log"' EXIT

# expect STATUS TEXT LINE...: of a log with these lines
expect() {
    local status=$1 text=$2 said actual=0
    shift 2
    printf '%s\n' 'other words' "$@" >"$log"
    said=$("$script" "$log" 2>&1) || actual=$?
    if [[ $actual != "$status" || $said != *"$text"* ]]; then
        printf 'log:\n%s\nexpected %s and "%s", got %s and "%s"\n' "$(<"$log")" "$status" "$text" \
            "$actual" "$said" >&2
        exit 1
    fi
}

both=('[machine] has plain' '[machine] has wide')
expect 0 'tests by path: plain 1, wide 2' "${both[@]}" '[path] wide' '[path] plain' '[path] wide'
expect 1 'can run the path wide, and no test has entered it' "${both[@]}" '[path] plain'
expect 1 'can run the path plain, and no test has entered it' "${both[@]}" '[path] wide'
expect 1 'can run the path wide, and no test has entered it' "${both[@]}" '[path] plain' '[path] wider'
expect 0 'tests by path: plain 1; not on wide, wider, which this machine lacks' \
    '[machine] has plain' '[machine] lacks wide' '[machine] lacks wider' '[path] plain'
expect 1 'have run on the path wide, which this machine is said to lack' \
    '[machine] has plain' '[machine] lacks wide' '[path] plain' '[path] wide'
expect 1 'no test has said which paths this machine has' '[path] plain'
