#!/usr/bin/env bash
# What the host library exports is what exports.txt says, name by name: a change of it is a change of
# the border that programs are linked across.
set -euo pipefail
library=$1 expected=$2
nm --dynamic --defined-only "$library" | cut -d ' ' -f 3 | c++filt | LC_ALL=C sort -u |
  diff "$expected" - >&2 || { echo "FAILED: $library exports other names than $expected" >&2; exit 1; }
