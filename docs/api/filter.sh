#!/bin/sh
# usage: filter.sh HEADER
# The module of a header is the folder that it lies in.
case $1 in
    */port/include/* | port/include/*) module=platform_interfaces ;;
    */app/* | app/*) module=helper ;;
    *) module=$(basename "$(dirname "$1")") ;;
esac
exec awk -v module="$module" -f "$(dirname "$0")/filter.awk" "$1"
