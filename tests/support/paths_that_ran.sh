#!/usr/bin/env bash
# paths_that_ran.sh LOG: from the log of a preset's tests, how many of them ran on each path of the
# kernels, and which paths the machine lacks. Fails where it can run a path that no test has entered.
set -euo pipefail

log=$1
has=$(sed -n 's/^\[machine\] has //p' "$log" | sort -u)
lacks=$(sed -n 's/^\[machine\] lacks //p' "$log" | sort -u)
if [[ -z $has ]]; then
    echo "no test has said which paths this machine has" >&2
    exit 1
fi

failed=0 ran=()
for path in $has; do
    count=$(grep -cxF "[path] $path" "$log" || true)
    ran+=("$path $count")
    if ((count == 0)); then
        echo "this machine can run the path $path, and no test has entered it" >&2
        failed=1
    fi
done
while read -r path; do
    if ! grep -qxF "$path" <<<"$has"; then
        echo "tests have run on the path $path, which this machine is said to lack" >&2
        failed=1
    fi
done < <(sed -n 's/^\[path\] //p' "$log" | sort -u)

printf 'tests by path:'
printf ' %s' "${ran[0]}"
((${#ran[@]} == 1)) || printf ', %s' "${ran[@]:1}"
[[ -z $lacks ]] || printf '; not on %s, which this machine lacks' "$(paste -sd, <<<"$lacks" | sed 's/,/, /g')"
echo
exit $failed
