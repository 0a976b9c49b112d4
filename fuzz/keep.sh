#!/usr/bin/env bash
# keep.sh BUILD TARGET...: of all inputs that the searches have found, the fewest that reach as much, as the
# repository's corpora. The seeds stand in front: what is whole is large, and large ones are left out first.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
build=$1
shift
mkdir -p "$here/corpus" "$build/logs"
/usr/bin/python3 "$here/make_seeds.py" "$build/seeds"
for target in "$@"; do
    fewest=$build/fewest/$target
    rm -rf "$fewest" && mkdir -p "$fewest" "$build/corpus/$target"
    "$build/bin/fuzz/$target" -set_cover_merge=1 -max_len=4096 "$fewest" "$build/corpus/$target" >"$build/logs/$target.merge" 2>&1
    "$here/corpus.py" pack "$here/corpus/$target.corpus" "$build/seeds/$target" "$fewest"
done
