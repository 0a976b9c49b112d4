#!/bin/sh
# Installs the build in $1 into an empty prefix, then builds and runs an application against it:
# through the CMake package (shared and static) and through pkg-config.
set -eu
build=$1
consumer=$(cd "$(dirname "$0")/consumer" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix

cmake --install "$build" --prefix "$prefix" >/dev/null

cmake -S "$consumer" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/cmake" >/dev/null
for program in with_shared with_static; do
    test "$("$work/cmake/$program")" = "distance 1.0"
done

PKG_CONFIG_PATH=$(find "$prefix" -type d -name pkgconfig)
export PKG_CONFIG_PATH
# The host's stand-in platform lies beside the library; on a camera the platform's own is linked.
# shellcheck disable=SC2046
cc -std=c99 -Wall -Wextra -Werror "$consumer/main.c" -o "$work/with_pkg_config" \
    $(pkg-config --define-variable=prefix="$prefix" --cflags --libs kova_fr) -lkova_mpi_host
library_dir=$(dirname "$(find "$prefix" -name libkova_fr.so)")
test "$(LD_LIBRARY_PATH=$library_dir "$work/with_pkg_config")" = "distance 1.0"
echo "the installed package works"
