#!/bin/sh
# Does what the README says under "Linking the library", word by word: its shell and CMake blocks, with a block of
# the tour as the program. Where a prefix is given it stands for /usr/local, and only there.
# usage: readme_shell.sh SOURCE-DIR [PREFIX]
set -eu
source=$(cd "$1" && pwd)
prefix=${2:-/usr/local}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
trap 'exit 130' INT TERM

# block LANGUAGE NUMBER: that block of the text on the standard input.
block() {
    awk -v start="\`\`\`$1" -v number="$2" '
        /^```/ { inside = !inside && $0 == start && ++count == number; next }
        inside'
}
section() { awk -v heading="## $2" '/^## / { on = $0 == heading } on' "$source/$1"; }
linking() { section README.md "Linking the library" | block "$@" | sed "s|/usr/local|$prefix|g"; }

linking sh 1 >"$work/install.sh"
linking cmake 1 >"$work/CMakeLists.txt"
linking sh 2 >"$work/compile.sh"
section docs/tour.md "Text and paths" | block cpp 1 >"$work/app.cpp"
section docs/tour.md "Text and paths" | block text 1 >"$work/expected"

cd "$source"
sh -e "$work/install.sh"
cd "$work"
CMAKE_PREFIX_PATH=${2:-} cmake -G Ninja -B build .
cmake --build build
build/app | diff expected -
[ $# -lt 2 ] || export PKG_CONFIG_PATH="$prefix/lib/pkgconfig"
sh -e compile.sh
./app | diff expected -
