#!/bin/sh
# usage: filter.sh HEADER|DOCUMENT
# The module of a header is the folder that it lies in. Of a document Doxygen does not know the chapters by name.
case $1 in
    *.md) exec sed -E 's/\[([^]]*)\]\(#[^)]*\)/\1/g; s/\.md#[^)]*\)/.md)/g' "$1" ;;
    */port/include/* | port/include/*) module=platform_interfaces ;;
    */app/* | app/*) module=helper ;;
    *) module=$(basename "$(dirname "$1")") ;;
esac
exec awk -v module="$module" -f "$(dirname "$0")/filter.awk" "$1"
