#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Every public header alone, twice in a row, as each C from C99 to C17 and each C++ from C++11 to C++23, by each
# compiler that is there. Any warning is an error.
#
#     headers_alone.sh INCLUDE-FOLDER
set -euo pipefail
include=$1
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

headers=("$include"/orvo/*.h)
[[ -e ${headers[0]} ]] || { echo "there is no header in $include/orvo" >&2 && exit 1; }
for header in "${headers[@]}"; do
    name=$(basename "$header")
    # A translation unit is not empty in ISO C.
    printf '#include "orvo/%s"\n#include "orvo/%s"\nextern int orvo_header_stands_alone;\n' \
        "$name" "$name" | tee "$folder/${name%.h}.c" >"$folder/${name%.h}.cpp"
done

warnings=(-Wall -Wextra -Wpedantic -pedantic-errors -Wshadow -Wconversion -Wundef -Werror)
count=0
compilers=0
check() { # LANGUAGE COMPILER FLAG...
    local language=$1 source
    shift
    for source in "$folder"/*."$language"; do
        "$@" "${warnings[@]}" -I "$include" -fsyntax-only "$source" || {
            echo "$(basename "${source%.*}").h does not stand alone: $*" >&2
            exit 1
        }
        count=$((count + 1))
    done
}
for compiler in gcc clang clang-19; do
    command -v "$compiler" >/dev/null || continue
    compilers=$((compilers + 1))
    for standard in c99 c11 c17; do
        check c "$compiler" "-std=$standard" -Wstrict-prototypes
    done
done
for compiler in g++ clang++ clang++-19; do
    command -v "$compiler" >/dev/null || continue
    compilers=$((compilers + 1))
    for standard in c++11 c++14 c++17 c++20 c++2b; do
        check cpp "$compiler" "-std=$standard" -Wzero-as-null-pointer-constant
    done
done
((compilers > 0)) || { echo "there is no compiler" >&2 && exit 1; }
echo "${#headers[@]} headers, $compilers compilers, $count compilations"
