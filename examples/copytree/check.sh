#!/bin/sh
# usage: check.sh COPYTREE
# Copies a small tree and compares, stops the copy of a large file by Ctrl-C, looks at the line of a narrow terminal,
# and lets one fail.
set -eu
place=$(mktemp -d)
trap 'rm -rf "$place"' EXIT

mkdir -p "$place/from/a folder/below" "$place/from/empty"
echo one >"$place/from/first"
echo two >"$place/from/a folder/.hidden"
head -c 1000000 /dev/urandom >"$place/from/a folder/below/third"
"$1" "$place/from" "$place/to/there" >"$place/printed"
diff -r "$place/from" "$place/to/there"
tail -n 1 "$place/printed" | grep -qx '3 files'

mkdir "$place/large"
truncate -s 20G "$place/large/file"
rm "$place/printed"
"$1" "$place/large" "$place/stopped" >"$place/printed" &
until [ -s "$place/printed" ]; do # it shows when it is at work
    sleep 0.01
done
kill -INT $!
status=0
wait $! || status=$?
[ $status = 130 ]
[ ! -e "$place/stopped/file" ]
grep -qx "stopped after 0 files, which are in $place/stopped" "$place/printed"

if command -v script >/dev/null; then
    mv "$place/large/file" "$place/large/näme, which is longer than the line"
    ln -s "$1" "$place/copytree" # whose path needs no quotes
    script -qec "stty cols 40; '$place/copytree' '$place/large' '$place/line'" /dev/null | tr '\r' '\n' | grep '%' >"$place/printed"
    grep -q 'files/s .* left' "$place/printed"
    if grep '.\{44\}' "$place/printed"; then exit 1; fi # with the code that clears the rest of the line
fi

status=0
"$1" "$place/none" "$place/nowhere" 2>"$place/errors" >"$place/printed" || status=$?
[ $status = 1 ]
grep -q "cannot copy $place/none" "$place/errors"
