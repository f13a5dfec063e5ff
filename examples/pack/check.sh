#!/bin/sh
# Packs two files, extracts them elsewhere and compares; then the ways in which it fails, and a
# signal while a tool waits for an archive that never comes: the tool ends with it.
# usage: check.sh PROGRAM
set -eu
pack=$1
[ -x /usr/bin/zip ] && [ -x /usr/bin/unzip ] || { echo "skipped: zip or unzip is not installed"; exit 77; }
place=$(mktemp -d)
trap 'rm -rf "$place"' EXIT
cd "$place"
mkdir in out
echo one >'in/the first'
head -c 100000 /dev/urandom >in/second
"$pack" all.zip 'in/the first' in/second >report
grep -qx '2 files in all.zip' report
"$pack" -x all.zip out >report
grep -qx 'all.zip is in out' report
diff -r in out
status=0
"$pack" all.zip in/missing 2>errors || status=$?
[ $status = 1 ]
grep -qx 'pack: File does not exist: "in/missing"' errors
if "$pack" -x in/second out 2>errors; then exit 1; fi
grep -q 'pack: File could not be extracted from Zip file: "in/second"' errors
mkfifo "never$$.zip"
for signal in INT:130 TERM:0; do
    "$pack" -x "never$$.zip" out >report & pid=$!
    until grep -qs "unzip -o .neve[r]$$" /proc/[0-9]*/cmdline; do sleep 0.1; done
    kill -"${signal%:*}" $pid
    status=0
    wait $pid || status=$?
    [ $status = "${signal#*:}" ]
    while grep -qs "neve[r]$$" /proc/[0-9]*/cmdline; do sleep 0.1; done
done
