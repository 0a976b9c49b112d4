#!/usr/bin/env bash
# on_model.sh QEMU MODEL PATH PROGRAM [ARGUMENT...]: runs a test program on an emulated processor, where
# the library itself is to choose the path. Fails if it chooses another or if a test fails; the emulator
# refuses instructions that the model does not have.
set -euo pipefail

qemu=$1 model=$2 path=$3
shift 3
unset ORVO_FR_PATH
log=$(mktemp)
trap 'rm -f "$log"' EXIT
status=0
"$qemu" -cpu "$model" "$@" >"$log" 2>&1 || status=$?
cat "$log"
if ((status != 0)); then
    echo "the tests fail on $model, with status $status" >&2
    exit 1
fi
if ! grep -qxF "[path] $path" "$log"; then
    echo "on $model the library should choose the path $path" >&2
    exit 1
fi
