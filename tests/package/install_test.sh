#!/bin/sh
# SPDX-License-Identifier: MIT
# Installs the build in $1 into an empty prefix, moves that, and builds and runs the examples against
# it: in C and C++, linked with the shared and the static library, through CMake and pkg-config. Each
# must give the distance that kova-fr gives.
set -eu
build=$1
examples=$(cd "$(dirname "$0")/../../examples" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/as-built" >/dev/null
prefix="$work/moved prefix"
mv "$work/as-built" "$prefix"
library_dir=$(dirname "$(find "$prefix" -name libkova_fr.so)")

# Any bytes are a picture. The third has a size that has to be scaled.
library=$(find "$prefix" -name libkova_fr.a)
{ printf 'P5\n256 256\n255\n' && head -c 65536 "$library"; } >"$work/a.pgm"
{ printf 'P5\n256 256\n255\n' && tail -c 65536 "$library"; } >"$work/b.pgm"
{ printf 'P5\n201 150\n255\n' && head -c 30150 "$library"; } >"$work/c.pgm"

# distance A B: as the installed kova-fr gives it, with the digits that tell floats apart.
distance() {
    number=$("$prefix/bin/kova-fr" compare --json "$work/$1" "$work/$2" |
        sed -n 's/.*"distance":\([-0-9.e]*\).*/\1/p')
    LC_ALL=C printf '%.9g' "${number:?kova-fr gave no distance}"
}

# check PROGRAM PICTURE...: compares a.pgm with each picture.
check() {
    program=$1
    shift
    for other in "$@"; do
        got=$("$program" "$work/a.pgm" "$work/$other")
        wanted=$(distance a.pgm "$other")
        if [ "$got" != "$wanted" ]; then
            echo "$program: a.pgm and $other give '$got', kova-fr gives '$wanted'" >&2
            exit 1
        fi
    done
    if "$program" "$work/a.pgm" "$work/missing" 2>/dev/null; then
        echo "$program succeeds on a picture that is not there" >&2
        exit 1
    fi
}

check_both() {
    check "$1/face_distance" b.pgm c.pgm
    check "$1/plain_memory" b.pgm
    echo "$2: both examples give kova-fr's distances"
}

for static in OFF ON; do
    cmake -S "$examples" -B "$work/cmake-$static" -DCMAKE_PREFIX_PATH="$prefix" \
        -DORVO_STATIC=$static -DCMAKE_COMPILE_WARNING_AS_ERROR=ON >/dev/null
    cmake --build "$work/cmake-$static" >/dev/null
    check_both "$work/cmake-$static" "CMake, static $static"
done

PKG_CONFIG_PATH=$library_dir/pkgconfig
export PKG_CONFIG_PATH
for static in '' 1; do
    mkdir "$work/make$static"
    make -C "$examples" OUT="$work/make$static" STATIC=$static CFLAGS=-Werror CXXFLAGS=-Werror \
        >/dev/null
    LD_LIBRARY_PATH=$library_dir check_both "$work/make$static" "make, static ${static:-0}"
done

# The statically linked ones must not have taken the shared library after all.
for program in "$work/cmake-ON/face_distance" "$work/make1/face_distance"; do
    if readelf -d "$program" | grep -q 'NEEDED.*libkova_fr'; then
        echo "$program needs libkova_fr.so" >&2
        exit 1
    fi
done
