#!/usr/bin/env bash
# Makes a copy of the SDK's headers that differs from it: edit_headers.sh INCLUDE COPY HEADER SCRIPT
# applies the sed script to one header of the copy, and fails when that changes nothing.
set -euo pipefail
include=$1 copy=$2 header=$3 script=$4
rm -rf "$copy"
cp -r "$include" "$copy"
sed -i -E -f "$script" "$copy/tarvo/$header"
if cmp -s "$include/tarvo/$header" "$copy/tarvo/$header"; then
  echo "$script does not change $header" >&2
  exit 1
fi
