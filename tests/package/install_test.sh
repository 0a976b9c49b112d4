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

# expect_refusal TEXT PROGRAM ARGUMENT...: the program fails and says so.
expect_refusal() {
    text=$1
    shift
    if "$@" </dev/null >/dev/null 2>"$work/errors"; then
        fail "$*: succeeds"
    fi
    grep -q "$text" "$work/errors" || fail "$*: does not say '$text' but $(cat "$work/errors")"
}

# The pictures that the examples read, and those they must not misread: comments in a header, another largest
# value, 16 bits, a cut end, PNG.
{ printf 'P5 # one\n# two\n256\n# three\n256 255\n' && tail -c +16 "$work/b.pgm"; } >"$work/comments.pgm"
{ printf 'P5\n256 256\n65535\n' && head -c 131072 "$library_dir/libkova_fr.a"; } >"$work/wide.pgm"
head -c 5000 "$work/a.pgm" >"$work/cut.pgm"
sample=$(dirname "$0")/../../samples
{ printf 'P5\n256 256\n255\n' && head -c 65536 /dev/zero; } >"$work/nobody.pgm"
/usr/bin/python3 -c 'import cv2, sys; cv2.imwrite(sys.argv[2], cv2.imread(sys.argv[1], 0))' \
    "$sample/ada-1.png" "$work/face.pgm"
check_pictures() {
    expect "$distance_b" comments.pgm "$1"
    expect_refusal '16 bits' "$1" "$work/a.pgm" "$work/wide.pgm"
    expect_refusal 'cut short' "$1" "$work/a.pgm" "$work/cut.pgm"
    [ "$("$1" "$sample/ada-1.png" "$sample/ada-1.png" | cut -c 1)" = 1 ] ||
        [ "$("$1" "$sample/ada-1.png" "$sample/ada-1.png" | cut -c 1-4)" = 0.99 ] ||
        fail "$1: a PNG picture is not like itself"
}

# One among many: the picture itself, and who of the samples is whom, in the order of kova-fr's distances.
check_search() {
    "$1" "$work/a.pgm" "$work/b.pgm" "$work/comments.pgm" "$work/a.pgm" >"$work/found"
    [ "$(sed -n '1s/.* //p' "$work/found")" = "$work/a.pgm" ] || fail "$1: does not find the picture itself"
    [ "$(sed -n '2p' "$work/found")" = "$distance_b $work/b.pgm" ] || fail "$1: $(cat "$work/found")"
    [ "$(sed -n '3p' "$work/found")" = "$distance_b $work/comments.pgm" ] || fail "$1: $(cat "$work/found")"
    expect_refusal 'is not 256 x 256' "$1" "$work/a.pgm" "$work/c.pgm"
}

# A camera: nobody, then the person for twelve frames, then nobody again.
check_camera() {
    for _ in 1 2; do cat "$work/nobody.pgm"; done >"$work/stream.pgm"
    for _ in 1 2 3 4 5 6 7 8 9 10 11 12; do cat "$work/face.pgm"; done >>"$work/stream.pgm"
    for _ in 1 2 3 4 5 6 7 8 9 10 11; do cat "$work/nobody.pgm"; done >>"$work/stream.pgm"
    "$1" "$work/face.pgm" 0.9 <"$work/stream.pgm" >"$work/seen"
    [ "$(cut -d' ' -f 1-3 "$work/seen" | tr '\n' ';')" = 'frame 5: here;frame 24: gone;25 frames;' ] ||
        fail "$1: $(cat "$work/seen")"
    { cat "$work/face.pgm" && printf 'P5\n16 '; } >"$work/broken.pgm"
    if "$1" "$work/face.pgm" 0.9 <"$work/broken.pgm" >/dev/null 2>"$work/errors"; then
        fail "$1: a stream that breaks off is taken for one that ends"
    fi
}

check_examples() {
    expect "$distance_b" b.pgm "$1/face_distance"
    expect "$distance_c" c.pgm "$1/face_distance"
    expect "$distance_d" d.pgm "$1/face_distance"
    expect "$distance_b" b.pgm "$1/plain_memory"
    expect_faces a.pgm "$1/find_faces"
    check_pictures "$1/plain_memory"
    if [ -x "$1/search_faces" ]; then
        check_search "$1/search_faces"
        check_camera "$1/camera_loop"
    fi
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

# libkova_fr and libkova_find in place of libkova.
for static in OFF ON; do
    kernels=$work/cmake-kernels-$static
    build_with_cmake "$kernels" -DCMAKE_PREFIX_PATH="$prefix" -DORVO_STATIC=$static -DORVO_LIBRARY=kova_fr
    expect "$distance_b" b.pgm "$kernels/plain_memory"
    expect_faces a.pgm "$kernels/find_faces"
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
    if readelf -d "$program" | grep -q 'NEEDED.*libkova\(_fr\)*\.so'; then
        fail "$program needs libkova"
    fi
done
