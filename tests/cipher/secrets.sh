#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Builds the library by several compilers, without optimisation, with it, and optimised at link time, and runs the tests
# of secrets on each: nothing of a key is left on the stack, in registers or in statics by any cipher, and no
# branch depends on one. On ARM under emulation, where valgrind cannot follow, the first of these alone.
#
#     secrets.sh [BUILD...]     such as "arm" for the builds whose names begin so; all without an argument
#     LEVELS=LTO secrets.sh      one way of optimising alone
set -uo pipefail
cd "$(dirname "$0")/../.."

folder=build/secrets
traces=(traces_test traces_after_faults_test)
wanted=("$@")
row_format='| %-14s | %-4s | %s |' # build, optimisation, result
source tests/support/several_builds.sh

# machine NAME "OPTIMISATION..." "TARGET..." CMAKE-ARGUMENT...
machine() {
    local name=$1 optimisations=${LEVELS:-$2} targets=$3 optimisation build log
    shift 3
    is_wanted "$name" || return 0
    for optimisation in $optimisations; do
        build=$(folder_of secrets "$name" "$optimisation")
        log=$folder/$name-$optimisation.log
        mkdir -p "$folder"
        # shellcheck disable=SC2046,SC2086 # words
        if ! { cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DORVO_WERROR=ON -DORVO_BUILD_BENCH=OFF \
            -DORVO_BUILD_TOOLS=OFF -DORVO_BUILD_PYTHON=OFF $(flags_of "$optimisation") "$@" &&
            cmake --build "$build" --target $targets; } >"$log" 2>&1; then
            failed=1
            row "$name" "$optimisation" "does not build, see $log"
            continue
        fi
        if ctest --test-dir "$build" -R '^(traces|constant_time)_' --output-on-failure >>"$log" 2>&1; then
            row "$name" "$optimisation" "$(grep -c ' Passed ' "$log") tests passed$(grep -q '(Skipped)' "$log" && echo ', some skipped')"
        else
            failed=1
            row "$name" "$optimisation" "fails, see $log"
        fi
    done
}

row Build Opt. Result
machine "g++ $(g++ -dumpversion)" 'O3 O0 LTO' "${traces[*]} constant_time_test"
for version in 14 19; do
    machine "clang $version" 'O3 O0 LTO' "${traces[*]} constant_time_test" -DCMAKE_CXX_COMPILER=clang++-$version \
        -DCMAKE_C_COMPILER=clang-$version
done
machine 'arm softfp' 'O3 LTO' "${traces[*]}" "--toolchain=$PWD/cmake/toolchains/arm-softfp.cmake"
machine 'arm hard-float' 'O3 LTO' "${traces[*]}" "--toolchain=$PWD/cmake/toolchains/arm-hardfp.cmake"
machine aarch64 'O3 LTO' "${traces[*]}" "--toolchain=$PWD/cmake/toolchains/aarch64.cmake"

printf '\n%s\n' "${rows[0]}" '|---|---|---|'
printf '%s\n' "${rows[@]:1}"
exit $failed
