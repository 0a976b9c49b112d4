#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Builds the library by several compilers, at two levels of optimisation, for several machines, and compares what
# digests.c prints on each path of each: every line must be the same. Ends with one table, and with status 1 where
# anything differs or does not build.
#
#     portability.sh [BUILD...]     such as "arm" for the builds whose names begin so; all without an argument
#     LEVELS=O3 portability.sh      one level alone
set -uo pipefail
cd "$(dirname "$0")/../.."

folder=build/portability
kernels=(arma_convolve_chw_q7 ArmAConvolve1x1s1p0ChwQ7 arma_convolvedw_3x3_s1_chw_q7
    ArmAConvolvedwRelu3x3s1ChwQ7 ArmAMaxPool2x2S2ChwQ7 ArmAMaxpoolK2x2S1x1ChwQ7 ArmADownsample
    ArmAReluChwQ7 ArmAZpadPlusChwQ7 ArmAGapQ7Chw ArmAConvolveGlobalChwQ7 ArmAFcQ7 ArmAXorQ7)
paths=(plain sse41 avx2 avxvnni avxvnni_evex avx512vnni amx neon neon_dot rvv)
ciphers=(plain look_up instructions wide_instructions)
wanted=("$@")
row_format='| %-22s | %-3s | %-62s | %s |' # build, level, paths, result
source tests/support/several_builds.sh

# Rendered people, two crops and a whole picture in which a face is looked for.
mkdir -p "$folder/pictures"
/usr/bin/python3 - "$folder/pictures" ada-1 ben-2 <<'PYTHON' || exit 1
import sys
from PIL import Image
for name in sys.argv[2:]:
    Image.open(f"samples/{name}.png").convert("L").save(f"{sys.argv[1]}/{name}.pgm")
PYTHON
pictures=("$folder"/pictures/{ada-1,ben-2}.pgm tests/find/pictures/good.pgm)

# build NAME LEVEL CC CMAKE-ARGUMENT...: the library and the program, of which the log stays.
build() {
    local name=$1 level=$2 cc=$3 build
    build=$(folder_of portability "$1" "$2")
    shift 3
    local wrap=("${kernels[@]/#/-Wl,--wrap=}")
    {
        # shellcheck disable=SC2046 # words
        cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DORVO_WERROR=ON -DORVO_BUILD_TESTS=OFF \
            -DORVO_BUILD_BENCH=OFF -DORVO_BUILD_TOOLS=OFF -DORVO_BUILD_PYTHON=OFF $(flags_of "$level") "$@" &&
            cmake --build "$build" --target kova_fr_static kova_find_static &&
            $cc -std=c99 "-$level" -Wall -Wextra -Iinclude "${wrap[@]}" tests/portability/digests.c \
                examples/plain_platform.c "$build/lib/libkova_find.a" "$build/lib/libkova_fr.a" \
                -lm -lpthread -o "$build/digests"
    } >"$folder/$name-$level.log" 2>&1
}

# run_paths NAME LEVEL EMULATOR...: on every path that the machine has, with one cipher after the other, and with memory
# that holds something else each time.
run_paths() {
    local name=$1 level=$2 program path said ran=() different='' turn=0 fill
    program=$(folder_of portability "$1" "$2")/digests
    shift 2
    for path in "${paths[@]}"; do
        said=$folder/$name-$level.$path
        fill=${FILL:-$((turn * 85 % 256))}
        if ! env ORVO_FR_PATH="$path" ORVO_FR_CIPHER="${ciphers[turn++ % 4]}" "$@" \
            "$program" "$fill" "${pictures[@]}" >"$said" 2>"$said.error"; then
            different+=" $path fails,"
            continue
        fi
        [[ $(head -n 1 "$said") == "path $path" ]] || continue
        ran+=("$path")
        tail -n +2 "$said" >"$said.lines"
        [[ -s $folder/reference.lines ]] || cp "$said.lines" "$folder/reference.lines"
        cmp -s "$said.lines" "$folder/reference.lines" || different+=" $path differs,"
    done
    if [[ -z $different ]] && ((${#ran[@]})); then
        row "$name" "$level" "${ran[*]}" same
    else
        failed=1
        row "$name" "$level" "${ran[*]}" "${different:- nothing ran}"
    fi
}

# machine NAME CC EMULATOR CMAKE-ARGUMENT...: at both levels.
machine() {
    local name=$1 cc=$2 emulator=$3 level
    shift 3
    is_wanted "$name" || return 0
    for level in ${LEVELS:-O3 O0}; do
        if build "$name" "$level" "$cc" "$@"; then
            # shellcheck disable=SC2086 # words
            run_paths "$name" "$level" $emulator
        else
            failed=1
            row "$name" "$level" '' "does not build, see $folder/$name-$level.log"
        fi
    done
}

toolchain() { echo "--toolchain=$PWD/cmake/toolchains/$1.cmake"; }

# The reference first, by the compiler that CMake takes by itself: what all others are compared with.
rm -f "$folder/reference.lines"
row Build '' 'Paths that ran' Digests
reference="g++ $(g++ -dumpversion)"
((${#wanted[@]})) && wanted+=("$reference")
machine "$reference" gcc ''
for version in 14 19; do
    machine "clang $version" clang-$version '' -DCMAKE_CXX_COMPILER=clang++-$version \
        -DCMAKE_C_COMPILER=clang-$version
done
machine i386 'i686-linux-gnu-gcc -static -msse2 -mfpmath=sse' '' "$(toolchain i686)"
machine 'arm softfp' 'arm-linux-gnueabi-gcc -march=armv7-a -mfpu=neon-vfpv4 -mfloat-abi=softfp' \
    'qemu-arm -cpu cortex-a7 -L /usr/arm-linux-gnueabi' "$(toolchain arm-softfp)"
machine 'arm hard-float' 'arm-linux-gnueabihf-gcc -march=armv7-a -mfpu=neon-vfpv4 -mfloat-abi=hard' \
    'qemu-arm -cpu cortex-a7 -L /usr/arm-linux-gnueabihf' "$(toolchain arm-hardfp)"
machine aarch64 aarch64-linux-gnu-gcc 'qemu-aarch64 -cpu cortex-a76 -L /usr/aarch64-linux-gnu' \
    "$(toolchain aarch64)"
machine riscv64 'clang-19 --target=riscv64-linux-gnu' \
    'qemu-riscv64 -cpu rv64,v=true,vext_spec=v1.0,vlen=128 -L /usr/riscv64-linux-gnu' "$(toolchain riscv64)"
machine s390x s390x-linux-gnu-gcc 'qemu-s390x -L /usr/s390x-linux-gnu' "$(toolchain s390x)"
machine musl 'musl-gcc -static' '' "$(toolchain musl)"
# A cross build, so that the packer is compiled without the sanitizer, which its C++ library does not know. Vector
# kernels read behind the ends of rows and leave out, or multiply by 0, what they find there, which the sanitizer does
# not understand: it reports each of them. So it watches the plain kernels and all that is around them.
paths=(plain)
FILL=none LEVELS=O1 machine MemorySanitizer 'clang-19 -fsanitize=memory -g1' '' -DCMAKE_SYSTEM_NAME=Linux \
    -DCMAKE_SYSTEM_PROCESSOR=x86_64 -DCMAKE_CXX_COMPILER=clang++-19 -DCMAKE_C_COMPILER=clang-19 \
    -DORVO_SANITIZE=memory

printf '\n'
printf '%s\n' "${rows[0]}" '|---|---|---|---|' "${rows[@]:1}"
exit $failed
