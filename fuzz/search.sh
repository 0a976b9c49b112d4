#!/usr/bin/env bash
# search.sh BUILD SECONDS TARGET...: lets libFuzzer search each target for so long, as many at a time as there
# are processors. It begins with the repository's corpus, and what it finds joins BUILD/corpus/TARGET. The
# first finding of a target is kept in BUILD/findings, and the script fails.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)

search_one() {
    local build=$1 seconds=$2 target=$3
    local corpus=$build/corpus/$target log=$build/logs/$target.log
    if [[ ! -x $build/bin/fuzz/$target ]]; then
        echo "$target: no such target; there are $(cd "$build/bin/fuzz" && echo *)"
        return 1
    fi
    mkdir -p "$corpus" "$build/findings" "$build/logs"
    [[ ! -f $here/corpus/$target.corpus ]] || "$here/corpus.py" unpack "$here/corpus/$target.corpus" "$corpus"
    # Half a minute is for inputs that stand still; memory is that of the largest, AddressSanitizer's included.
    if ASAN_OPTIONS=quarantine_size_mb=16:${ASAN_OPTIONS:-} "$build/bin/fuzz/$target" \
        -max_total_time="$seconds" -max_len=4096 -timeout=30 -rss_limit_mb=2048 -malloc_limit_mb=1024 -reduce_inputs=0 \
        -print_final_stats=1 -artifact_prefix="$build/findings/$target-" "$corpus" >"$log" 2>&1; then
        awk -v target="$target" '
            /^#[0-9]+\tINITED/ { begin = $4 "/" $6 }
            /^#[0-9]+\tDONE/ { end = $4 "/" $6 }
            /number_of_executed_units/ { runs = $2 }
            END { printf "%-14s %10d runs, edges/features %s, with the corpus alone %s\n", target, runs, end, begin }' "$log"
    else
        echo "$target: a finding; $log says which, and $build/bin/fuzz/$target FILE in $build/findings repeats it"
        return 1
    fi
}

if [[ $1 == --one ]]; then
    shift
    search_one "$@"
    exit
fi
build=$1 seconds=$2
shift 2
printf '%s\n' "$@" | xargs -P "$(nproc)" -I {} "$0" --one "$build" "$seconds" {}
