# shellcheck shell=sh
# SPDX-License-Identifier: MIT
# For the tests beside: builds and runs the examples of the repository. `work` is an empty folder.
: "${work:?}"
examples=$(cd "$(dirname "$0")/../../examples" && pwd)

fail() {
    echo "$*" >&2
    exit 1
}

# make_pictures FILE: a.pgm to d.pgm in `work` from the file's bytes, since any bytes are a picture. c.pgm
# has a size that has to be scaled, d.pgm an odd column.
make_pictures() {
    { printf 'P5\n256 256\n255\n' && head -c 65536 "$1"; } >"$work/a.pgm"
    { printf 'P5\n256 256\n255\n' && tail -c 65536 "$1"; } >"$work/b.pgm"
    { printf 'P5\n201 150\n255\n' && head -c 30150 "$1"; } >"$work/c.pgm"
    { printf 'P5\n257 256\n255\n' && tail -c 65792 "$1"; } >"$work/d.pgm"
}

# wanted_distance KOVA_FR B: of a.pgm and B, as kova-fr gives it, with the digits that tell floats
# apart.
wanted_distance() {
    number=$("$1" compare --crop --json "$work/a.pgm" "$work/$2" |
        sed -n 's/.*"distance":\([-0-9.e]*\).*/\1/p')
    LC_ALL=C printf '%.9g' "${number:?kova-fr gave no distance}"
}

# expect WANTED B PROGRAM...: the program gives that distance of a.pgm and B, and refuses a picture
# that is not there.
expect() {
    wanted=$1
    other=$2
    shift 2
    got=$("$@" "$work/a.pgm" "$work/$other")
    [ "$got" = "$wanted" ] || fail "$*: a.pgm and $other give '$got', not '$wanted'"
    if "$@" "$work/a.pgm" "$work/missing" 2>/dev/null; then
        fail "$*: succeeds on a picture that is not there"
    fi
}

# build_with_cmake FOLDER [cmake arguments]
build_with_cmake() {
    folder=$1
    shift
    cmake -S "$examples" -B "$folder" -DCMAKE_COMPILE_WARNING_AS_ERROR=ON "$@" >/dev/null
    cmake --build "$folder" >/dev/null
}
