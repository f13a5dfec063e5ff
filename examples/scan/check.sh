#!/bin/sh
# usage: check.sh SCAN
# Runs the example on a small tree, whose count is known, and on the whole machine, stopped by Ctrl-C.
set -eu
tree=$(mktemp -d)
trap 'rm -rf "$tree"' EXIT

mkdir -p "$tree/a/b" "$tree/c"
touch "$tree/one" "$tree/a/.hidden" "$tree/a/b/a name"
ln -s / "$tree/link" # counted, not entered
"$1" "$tree" | grep -x '3 files, 4 folders'

"$1" / >"$tree/printed" &
until [ -s "$tree/printed" ]; do # it says when it is at work
    sleep 0.01
done
kill -INT $!
status=0
wait $! || status=$?
grep '^stopped after ' "$tree/printed" && [ $status = 130 ]
