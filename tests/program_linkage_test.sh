#!/usr/bin/env bash
# What every start of `tarvo` loads: the host library, the C++ runtime and the C library. What one
# subcommand needs is loaded by that one; the library that packs shows that this would be seen.
#
#   program_linkage_test.sh TARVO PACK_LIBRARY
set -euo pipefail
program=$1 pack=$2
fail() { echo "FAILED: $*" >&2; exit 1; }
loaded() { ldd "$1" | awk '{sub(".*/", "", $1); print $1}' | LC_ALL=C sort | tr '\n' ' '; }

expected="ld-linux-x86-64.so.2 libc.so.6 libgcc_s.so.1 libm.so.6 libstdc++.so.6 libtarvo.so.1 linux-vdso.so.1 "
[[ $(loaded "$program") == "$expected" ]] || fail "$program loads $(loaded "$program")"
[[ $(loaded "$pack") == *libzip.so.* ]] || fail "$pack loads $(loaded "$pack"), no libzip"
