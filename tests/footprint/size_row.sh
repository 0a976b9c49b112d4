#!/bin/bash
# SPDX-License-Identifier: MIT
# What the shared libraries take on one machine, as rows of the README's table: code and constants,
# initialised and zeroed data, working memory, and the stack of one OrvoFrRun() on the path that takes
# most. The last two are libkova_fr's alone: the finder's memory grows with the picture.
#
#   size_row.sh [--check] SOURCE MACHINE LIBRARY FINDER PATHS STACK_DEPTH...
#
# SOURCE is the root of the sources, LIBRARY and FINDER are libkova_fr and libkova_find, PATHS is a
# comma-separated list, STACK_DEPTH the command that measures the stack. With --check the README must have those
# rows, within 5 %; the stack may also be less, where the processor lacks the path that takes most.
set -euo pipefail
check=
[[ $1 != --check ]] || { check=1 && shift; }
source=$1 machine=$2 library=$3 finder=$4
IFS=, read -ra paths <<<"$5"
shift 5

memory=$(sed -n 's/.*ORVO_FR_MEMORY_SIZE = \([0-9]*\).*/\1/p' "$source/include/orvo/orvo_fr.h")
stack=0
for path in "${paths[@]}"; do
    depth=$(ORVO_FR_PATH=$path "$@")
    ((depth <= stack)) || stack=$depth
done

# row NAME LIBRARY MEMORY STACK
row() {
    read -r text data bss _ < <(size "$2" | tail -n 1)
    echo "| $1 | $text | $data | $bss | $3 | $4 |"
}

# check ROW: the README has it, or nearly.
check() {
    name=${1#| }
    stated=$(grep -F "| ${name%% |*} |" "$source/README.md") ||
        { echo "README.md has no size of ${name%% |*}" >&2 && return 1; }
    awk -F'|' -v now="$1" -v stated="$stated" 'BEGIN {
        split(now, a); split(stated, b)
        for (i = 3; i <= 6; ++i) {
            if (a[i] + 0 > b[i] * 1.05 || a[i] + 0 < b[i] * 0.95) { bad = 1 }
        }
        if (a[7] + 0 > b[7] * 1.05) { bad = 1 }
        exit bad
    }' || {
        printf 'README.md states\n%s\nState what ./run size prints.\n' "$stated" >&2
        return 1
    }
}

row "$machine" "$library" "$memory" "$stack"
row "libkova_find, $machine" "$finder" "" ""
[[ $check ]] || exit 0
check "$(row "$machine" "$library" "$memory" "$stack")"
check "$(row "libkova_find, $machine" "$finder" "" "")"
