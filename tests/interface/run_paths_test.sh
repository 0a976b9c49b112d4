#!/bin/sh
# SPDX-License-Identifier: MIT
# No ELF file below the folders given may make the dynamic linker look in the current folder: an empty
# entry of a run path means that, and so does a relative one. `$ORIGIN`, the file's own folder, is right.
set -eu
list=$(mktemp)
trap 'rm -f "$list"' EXIT

# What the compiler leaves beside its objects is none of our files.
find "$@" -name CMakeFiles -prune -o -type f ! -name '*.o' ! -name '*.a' -print0 |
    LC_ALL=C xargs -0 readelf -d /dev/null 2>/dev/null >"$list" || true

awk '
    /^File: / { file = substr($0, 7) }
    /^Dynamic section/ { ++looked }
    /\((RPATH|RUNPATH)\)/ {
        path = $0
        sub(/^[^[]*\[/, "", path)
        sub(/\]$/, "", path)
        ++paths
        count = split(path, entries, ":")
        bad = count == 0
        for (i = 1; i <= count; ++i) {
            bad = bad || entries[i] !~ /^(\/|\$ORIGIN(\/|$))/
        }
        if (bad) {
            print file ": looks for its libraries in [" path "]"
            wrong = 1
        }
    }
    END {
        if (!looked) {
            print "there is no program at all"
            exit 1
        }
        print looked + 0 " programs and libraries, " paths + 0 " of them with a run path"
        exit wrong
    }' "$list"
