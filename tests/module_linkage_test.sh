#!/usr/bin/env bash
# What a module's file promises: it exports its two data objects and nothing else, needs no library but
# the C++ runtime and the C library, and binds every function when it is loaded.
set -euo pipefail
module=$1
fail() { echo "FAILED: $*" >&2; exit 1; }

exported=$(nm --dynamic --defined-only "$module" | awk '{print $2, $3}' | sort -k2 | tr '\n' ';')
[[ $exported == [BD]' g_CpuYieldDelegate;'[BD]' g_tarvo;' ]] || fail "exports: $exported"

needed=$(readelf --dynamic "$module" | sed -n 's/.*NEEDED.*\[\(.*\)\]/\1/p' | sort | tr '\n' ' ')
for library in $needed; do
  case $library in
    libstdc++.so.6 | libgcc_s.so.1 | libc.so.6 | libm.so.6 | ld-linux-x86-64.so.2) ;;
    *) fail "needs $library" ;;
  esac
done

grep -q 'FLAGS.*BIND_NOW\|Flags:.*NOW' <<<"$(readelf --dynamic "$module")" || fail "binds functions lazily"
