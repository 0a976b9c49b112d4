#!/usr/bin/env bash
# codecs.sh BUILD: libpng and libjpeg from Debian's source packages, with AddressSanitizer and with the marks
# that libFuzzer follows, into BUILD/codecs/prefix, where `./run fuzz` takes them from. apt's lists are the
# script's own, so that nobody needs to be root. Undefined behaviour is not looked for: that in other people's
# code is theirs.
set -euo pipefail
work=$1/codecs
mkdir -p "$work/lists/partial" "$work/sources"
printf '%s\n' 'deb-src [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] http://deb.debian.org/debian bookworm main' \
    >"$work/sources.list"
apt=(apt-get -qq -o "Dir::Etc::SourceList=$work/sources.list" -o Dir::Etc::SourceParts=/dev/null
    -o "Dir::State::Lists=$work/lists" -o "Dir::Cache::srcpkgcache=$work/src.bin" -o "Dir::Cache::pkgcache=$work/pkg.bin")
cd "$work/sources"
"${apt[@]}" update
"${apt[@]}" source --download-only libpng1.6 libjpeg-turbo
for archive in libpng1.6_*.orig.tar.* libjpeg-turbo_*.orig.tar.*; do
    tar -xf "$archive"
done

# build_static FOLDER [cmake arguments]
build_static() {
    local folder=$1
    shift
    cmake -S "$folder" -B "$work/build/$folder" -G Ninja -DCMAKE_C_COMPILER=clang-19 -DCMAKE_BUILD_TYPE=Release \
        -DCMAKE_C_FLAGS_RELEASE="-O1 -gline-tables-only -fsanitize=address,fuzzer-no-link" \
        -DCMAKE_POSITION_INDEPENDENT_CODE=ON -DCMAKE_INSTALL_PREFIX="$work/prefix" "$@" >/dev/null
    cmake --build "$work/build/$folder"
    cmake --install "$work/build/$folder" >/dev/null
}
build_static libpng-1* -DPNG_SHARED=OFF -DPNG_TESTS=OFF -DPNG_EXECUTABLES=OFF -DPNG_HARDWARE_OPTIMIZATIONS=OFF
build_static libjpeg-turbo-* -DENABLE_SHARED=OFF -DWITH_SIMD=OFF -DWITH_TURBOJPEG=OFF
