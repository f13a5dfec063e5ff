#!/bin/sh
# The names that the shared library exports are those of the list, no more and no fewer, whatever the compiler.
# usage: exports.sh LIBRARY LIST [renew]           renew: writes the list
set -eu
exported() { nm -DC --defined-only "$1" | cut -c20- | sed -n 's/@@LFOUNDATION_1$//p' | LC_ALL=C sort -u; }
if [ "${3:-}" = renew ]; then
    exported "$1" >"$2"
    exit
fi
exported "$1" | diff "$2" - || { echo "docs/abi.md says what this means, and how the list is renewed"; exit 1; }
