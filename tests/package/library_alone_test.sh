#!/bin/sh
# SPDX-License-Identifier: MIT
# Configures the sources in $1 as a machine sees them that has a compiler, CLI11 and nlohmann-json and no more:
# the library is built, each part that lacks something says what, and a part that was asked for by name is an
# error. The other arguments go to cmake.
set -eu
sources=$1
shift
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
    echo "$*" >&2
    cat "$work/log" >&2
    exit 1
}

configure() {
    cmake -S "$sources" -B "$work/build" -DORVO_GOOGLETEST_DIR="$work/nowhere" \
        -DCMAKE_DISABLE_FIND_PACKAGE_PNG=ON -DCMAKE_DISABLE_FIND_PACKAGE_JPEG=ON \
        -DCMAKE_DISABLE_FIND_PACKAGE_OpenSSL=ON -DCMAKE_DISABLE_FIND_PACKAGE_benchmark=ON \
        "$@" >"$work/log" 2>&1
}

configure "$@" || fail "a machine with the least that is needed cannot configure"
for line in \
    "ORVO_BUILD_TOOLS is off, for want of PNG (libpng-dev), JPEG (libjpeg-dev), OpenSSL (libssl-dev)" \
    "ORVO_BUILD_TESTS is off, for want of $work/nowhere/CMakeLists.txt (googletest), OpenSSL (libssl-dev)" \
    "ORVO_BUILD_BENCH is off, for want of benchmark (libbenchmark-dev)"; do
    [ "$(grep -cxF -e "-- $line" "$work/log")" = 1 ] || fail "there is no line: $line"
done
cmake --build "$work/build" -j "$(nproc)" >"$work/log" 2>&1 || fail "the library does not build"
for file in libkova.so libkova.a libkova_fr.so libkova_fr.a libkova_find.so libkova_find.a libkova_mpi_host.so; do
    [ -s "$work/build/lib/$file" ] || fail "there is no $file"
done

# As where the stand-in cannot be made: on macOS and Android.
configure -DORVO_BUILD_HOST_PLATFORM=OFF || fail "without the stand-in nothing can be configured"
grep -qF "ORVO_BUILD_TESTS is off, for want of the stand-in" "$work/log" || fail "nobody says why there are no tests"
rm "$work"/build/lib/*
cmake --build "$work/build" -j "$(nproc)" >"$work/log" 2>&1 || fail "the library does not build without the stand-in"
cmake --install "$work/build" --prefix "$work/installed" >"$work/log" 2>&1 || fail "it cannot be installed"
for file in libkova.so libkova.a libkova_fr.so libkova_find.so cmake/orvo_fr/orvo_fr-config.cmake; do
    [ -e "$(find "$work/installed" -path "*/$file")" ] || fail "there is no $file"
done
[ -z "$(find "$work/build/lib" "$work/installed" -name '*mpi_host*')" ] || fail "the stand-in is there all the same"
! readelf -d "$work/build/lib/libkova_fr.so" | grep -q mpi_host || fail "the library needs the stand-in"
configure -DORVO_BUILD_HOST_PLATFORM=ON || fail "after that nothing else can be had"

for part in TOOLS TESTS BENCH; do
    if configure -DORVO_BUILD_$part=ON; then
        fail "ORVO_BUILD_$part=ON is silently left out"
    fi
    configure -DORVO_BUILD_$part=AUTO || fail "after ORVO_BUILD_$part=ON nothing else can be had"
done
echo "the library is built alone, and the parts that are left out say why"
