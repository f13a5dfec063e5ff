#!/bin/sh
# The names that the shared library exports are those of the list, no more and no fewer, whatever the compiler. What a
# compiler has not put into its callers of the inline functions, which a program has of its own, is passed over.
# usage: exports.sh LIBRARY LIST [renew]           renew: writes the list
set -eu
exported() { nm -DC --defined-only "$1" | sed -n 's/^[0-9a-f]* \(.*\)@@LFOUNDATION_1$/\1/p'; }
if [ "${3:-}" = renew ]; then
    exported "$1" | cut -c3- | LC_ALL=C sort -u >"$2"
    exit
fi
exported "$1" | awk 'NR == FNR { listed[$0]; next } { name = substr($0, 3) } $1 != "W" || name in listed { print name }' \
    "$2" - | LC_ALL=C sort -u | diff "$2" - || { echo "docs/abi.md says what this means, and how the list is renewed"; exit 1; }
