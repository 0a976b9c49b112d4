#!/bin/sh
# SPDX-License-Identifier: MIT
# Builds the sources in $1 once more, in a folder with another name, and compares its Debian packages with
# those of the build in $2: they must be the same bytes. The other arguments go to cmake.
set -eu
sources=$1
build=$2
shift 2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# Otherwise the second build would get the first one's objects.
export CCACHE_DISABLE=1

# packages BUILD FOLDER
packages() {
    mkdir -p "$2"
    (cd "$2" && cpack --config "$1/CPackConfig.cmake" -B "$2") >"$work/log" 2>&1 ||
        { cat "$work/log" >&2 && exit 1; }
}

copy="$work/another folder/sources"
mkdir -p "$copy"
# What git would take, or everything where there is no git.
(cd "$sources" && { git ls-files -z --cached --others --exclude-standard 2>/dev/null ||
    find . -path ./build -prune -o -type f -print0; } | tar --null --ignore-failed-read -T - -c) |
    tar -x -C "$copy"
{
    cmake -S "$copy" -B "$work/second" -DCMAKE_BUILD_TYPE=Release -DORVO_BUILD_TESTS=OFF \
        -DORVO_BUILD_BENCH=OFF -DFR_KEY_FILE="$copy/models/development.key" "$@" &&
        cmake --build "$work/second" -j "$(nproc)"
} >"$work/log" 2>&1 || { cat "$work/log" >&2 && exit 1; }

packages "$build" "$work/first packages"
packages "$work/second" "$work/second packages"
count=0
result=0
for package in "$work/first packages"/*.deb; do
    name=$(basename "$package")
    count=$((count + 1))
    cmp -s "$package" "$work/second packages/$name" && continue
    result=1
    echo "$name differs:" >&2
    for side in first second; do
        mkdir -p "$work/$side parts"
        dpkg-deb -R "$work/$side packages/$name" "$work/$side parts/$name" || true
    done
    diff -rq "$work/first parts/$name" "$work/second parts/$name" >&2 || true
done
[ $count -ge 3 ] || { echo "there are only $count packages" >&2 && exit 1; }
[ $result -ne 0 ] || echo "$count packages are the same bytes after a second build in another folder"
exit $result
