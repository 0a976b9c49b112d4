#!/bin/sh
# SPDX-License-Identifier: MIT
# Installs the build in $1 into an empty prefix, moves that, and builds and runs the examples against
# it: in C and C++, linked with the shared and the static library, through CMake and pkg-config. Each
# must give the distance that kova-fr gives.
set -eu
build=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# shellcheck source=tests/package/examples.sh
. "$(dirname "$0")/examples.sh"

cmake --install "$build" --prefix "$work/as-built" >/dev/null
prefix="$work/moved prefix"
mv "$work/as-built" "$prefix"
library_dir=$(dirname "$(find "$prefix" -name libkova_fr.so)")

make_pictures "$library_dir/libkova_fr.a"
distance_b=$(wanted_distance "$prefix/bin/kova-fr" b.pgm)
distance_c=$(wanted_distance "$prefix/bin/kova-fr" c.pgm)
distance_d=$(wanted_distance "$prefix/bin/kova-fr" d.pgm)

# The part of it that measures lies in another folder.
"$prefix/bin/kova-fr" bench --seconds 0 >/dev/null

# expect_faces PICTURE PROGRAM: the program finds as many faces as kova-fr.
expect_faces() {
    wanted=$("$prefix/bin/kova-fr" find --at-most 16 "$work/$1" | sed -n 's/^  .*/face/p' | wc -l)
    got=$("$2" "$work/$1" | tail -n 1)
    [ "$got" = "$wanted found" ] || fail "$2: $1 gives '$got', not $wanted faces"
    if "$2" "$work/missing" 2>/dev/null; then
        fail "$2: succeeds on a picture that is not there"
    fi
}

check_examples() {
    expect "$distance_b" b.pgm "$1/face_distance"
    expect "$distance_c" c.pgm "$1/face_distance"
    expect "$distance_d" d.pgm "$1/face_distance"
    expect "$distance_b" b.pgm "$1/plain_memory"
    expect_faces a.pgm "$1/find_faces"
    echo "$1: the examples give kova-fr's distances and faces"
}

for static in OFF ON; do
    build_with_cmake "$work/cmake-$static" -DCMAKE_PREFIX_PATH="$prefix" -DORVO_STATIC=$static
    check_examples "$work/cmake-$static"
    expect "$distance_b" b.pgm "$work/cmake-$static/face_distance_plain"
    if "$work/cmake-$static/face_distance_plain" "$work/a.pgm" "$work/c.pgm" 2>"$work/errors"; then
        fail "a frame was scaled without a scaler"
    fi
    grep -q 'no feature (status 0xa0038008)' "$work/errors" || fail "the platform's status is lost"
done

# A program that does not call the platform itself need not name it: the shared library brings the stand-in.
alone=$work/cmake-alone
cmake -S "$examples" -B "$alone" -DCMAKE_PREFIX_PATH="$prefix" -DPLATFORM_LIBRARIES= >/dev/null
cmake --build "$alone" --target plain_memory >/dev/null
expect "$distance_b" b.pgm "$alone/plain_memory"

PKG_CONFIG_PATH=$library_dir/pkgconfig
export PKG_CONFIG_PATH
for static in '' 1; do
    mkdir "$work/make$static"
    make -C "$examples" OUT="$work/make$static" STATIC=$static CFLAGS=-Werror CXXFLAGS=-Werror \
        >/dev/null
    LD_LIBRARY_PATH=$library_dir check_examples "$work/make$static"
done
mkdir "$work/make-alone"
make -C "$examples" OUT="$work/make-alone" PLATFORM_LIBS= CXXFLAGS=-Werror \
    "$work/make-alone/plain_memory" >/dev/null
LD_LIBRARY_PATH=$library_dir expect "$distance_b" b.pgm "$work/make-alone/plain_memory"

# The statically linked ones must not have taken the shared library after all.
for program in "$work/cmake-ON/face_distance" "$work/make1/face_distance"; do
    if readelf -d "$program" | grep -q 'NEEDED.*libkova_fr'; then
        fail "$program needs libkova_fr.so"
    fi
done
