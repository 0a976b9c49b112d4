# SPDX-License-Identifier: MIT
# For scripts that build the library in several ways and end with a table of them. They set `wanted`, the names that
# were asked for, and `row_format`.
rows=()
failed=0

row() {
    # shellcheck disable=SC2059 # the format is the script's own
    rows+=("$(printf "$row_format" "$@")")
    printf '%s\n' "${rows[-1]}"
}

# is_wanted NAME: whether it begins as one of those does, or none was named
is_wanted() {
    local name
    ((${#wanted[@]})) || return 0
    for name in "${wanted[@]}"; do
        [[ $1 == "$name"* ]] && return 0
    done
    return 1
}

# folder_of KIND NAME LEVEL: as deep as those of the presets, so that a compiler cache serves both
folder_of() {
    local name=build/$1-$2-$3
    echo "${name// /-}"
}

# flags_of LEVEL: what CMake is to be told, of O0, O1, O3, which is a release's own, and LTO
flags_of() {
    case $1 in
    O3) ;;
    LTO) echo -DCMAKE_INTERPROCEDURAL_OPTIMIZATION=ON ;;
    *) echo "-DCMAKE_C_FLAGS_RELEASE=-$1" "-DCMAKE_CXX_FLAGS_RELEASE=-$1" ;;
    esac
}
