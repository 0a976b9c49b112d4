#!/bin/bash
# SPDX-License-Identifier: MIT
# What the shared library takes on one machine, as a row of the README's table: code and constants,
# initialised and zeroed data, working memory, and the stack of one OrvoFrRun() on the path that takes
# most.
#
#   size_row.sh [--check] SOURCE MACHINE LIBRARY PATHS STACK_DEPTH...
#
# SOURCE is the root of the sources, PATHS a comma-separated list, STACK_DEPTH the command that measures
# the stack. With --check the README must have that row, within 5 %; the stack may also be less, where the
# processor lacks the path that takes most.
set -euo pipefail
check=
[[ $1 != --check ]] || { check=1 && shift; }
source=$1 machine=$2 library=$3
IFS=, read -ra paths <<<"$4"
shift 4

read -r text data bss _ < <(size "$library" | tail -n 1)
memory=$(sed -n 's/.*ORVO_FR_MEMORY_SIZE = \([0-9]*\).*/\1/p' "$source/include/orvo/orvo_fr.h")
stack=0
for path in "${paths[@]}"; do
    depth=$(ORVO_FR_PATH=$path "$@")
    ((depth <= stack)) || stack=$depth
done
row="| $machine | $text | $data | $bss | $memory | $stack |"
echo "$row"
[[ $check ]] || exit 0

stated=$(grep -F "| $machine | " "$source/README.md") ||
    { echo "README.md has no size of $machine" >&2 && exit 1; }
awk -F'|' -v now="$row" -v stated="$stated" 'BEGIN {
    split(now, a); split(stated, b)
    for (i = 3; i <= 6; ++i) {
        if (a[i] > b[i] * 1.05 || a[i] < b[i] * 0.95) { bad = 1 }
    }
    if (a[7] > b[7] * 1.05) { bad = 1 }
    exit bad
}' || {
    printf 'README.md states\n%s\nState what ./run size prints.\n' "$stated" >&2
    exit 1
}
