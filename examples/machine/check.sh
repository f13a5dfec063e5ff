#!/bin/sh
# Two runs of the example, with a file that is moved between them.
# usage: check.sh PROGRAM
set -eu
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT INT TERM
mkdir "$work/home" "$work/a" "$work/b"
export HOME="$work/home" XDG_CONFIG_HOME="$work/home"
unset CFFIXED_USER_HOME

touch "$work/a/file"
"$1" "$work/a/file" | grep '^machine .* of memory$'
mv "$work/a/file" "$work/b/other"
"$1" | grep -x "file       $work/b/other"
if "$1" "$work/a/file" 2>/dev/null; then exit 1; fi
