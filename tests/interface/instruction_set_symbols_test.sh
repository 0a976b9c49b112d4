#!/bin/sh
# SPDX-License-Identifier: MIT
# $1 is nm; the others are the object files that are compiled for an instruction set, or are the fallback
# of those. Where several objects have the same weak symbol, which is what inline functions and templates
# become, the linker keeps any of them: one with instructions that the processor lacks may be called by
# all. So no weak symbol leaves such an object. What else leaves it is its table, or belongs to a
# namespace of its own, so that nobody else can mean it.
set -eu
nm=$1
shift
"$nm" -A -C --defined-only --extern-only "$@" | awk -v objects=$# '
    / [DR] orvo::k[A-Z][A-Za-z0-9]*$/ { ++tables; next }
    / T orvo::[a-z0-9_]+::[A-Z][A-Za-z0-9]*\(/ { next }
    {
        print "leaves its object: " $0
        wrong = 1
    }
    END {
        if (!tables) {
            print "there is no table at all"
            wrong = 1
        }
        if (!wrong) {
            print tables " tables leave " objects " objects, and nothing that others could mean"
        }
        exit wrong
    }'
