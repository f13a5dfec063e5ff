#!/bin/sh
# usage: usage.sh PROGRAM
# Every example answers --help and --version on its standard output, and says where help is when it is called wrongly.
set -eu
"$1" --help | grep -q '^Usage: '
"$1" --version | grep -q ' (lfoundation) [0-9.]*$'
status=0
errors=$("$1" -x a b c 2>&1 >/dev/null) || status=$?
[ $status = 1 ]
case $errors in *"--help' for more information.") ;; *) exit 1 ;; esac
