#!/bin/sh
# Follows docs/adopting.md from its first step to its last, with the library as the build tree installs it. No application
# may be in a temporary folder, so that all of it is in the build tree.
# usage: adopting.sh BUILD-DIR SOURCE-DIR
set -eu
build=$1
source=$2
work=$(mktemp -d "$build/adopting.XXXXXX")
[ ! -e "$build/install_manifest.txt" ] || cp "$build/install_manifest.txt" "$work/manifest"
clean_up() {
    [ ! -e "$work/manifest" ] || cp "$work/manifest" "$build/install_manifest.txt"
    rm -rf "$work"
}
trap clean_up EXIT
trap 'exit 130' INT TERM

cmake --install "$build" --prefix "$work/prefix" --strip >/dev/null
mkdir "$work/me"
python3 "$source/tests/consumer/blocks.py" follow "$source/docs/adopting.md" "$work/me" "$work/prefix"
