#!/bin/sh
# Installs the build tree into a private prefix and builds the consumer against it twice: through
# find_package and through pkg-config. The README's tour must compile against it, too.
# usage: check.sh BUILD-DIR SOURCE-DIR
set -eu
build=$1
source=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT INT TERM

cmake --install "$build" --prefix "$work/prefix" >"$work/install.log"
[ -z "$(find "$work/prefix" -name '*.cpp')" ]

cmake -S "$source" -B "$work/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$work/prefix" ${CXXFLAGS:+-DCMAKE_CXX_FLAGS="$CXXFLAGS"} >"$work/configure.log"
cmake --build "$work/cmake" >"$work/build.log" || { cat "$work/build.log"; exit 1; }
"$work/cmake/consumer"

PKG_CONFIG_PATH=$(dirname "$(find "$work/prefix" -name lfoundation.pc)")
export PKG_CONFIG_PATH
# shellcheck disable=SC2046
${CXX:-c++} -std=c++20 ${CXXFLAGS:-} "$source/consumer.cpp" -o "$work/consumer" \
    $(pkg-config --define-variable=prefix="$work/prefix" --cflags --libs lfoundation)
"$work/consumer"

# Each piece of the tour that is no program is the body of a function; what it declares, it need not use.
awk -v out="$work/tour" '
    /^```cpp/ { ++piece; code = 1; text = ""; next }
    /^```/ && code { code = 0; file = out piece ".cpp"; printf "#include \"tour.h\"\n" > file
        printf (text ~ /int main/ ? "%s" : "void Tour();\nvoid Tour() {\n%s}\n"), text > file }
    code { text = text $0 "\n" }' "$source/../../README.md"
cp "$source/tour.h" "$work"
for piece in "$work"/tour*.cpp; do
    ${CXX:-c++} -std=c++20 -fsyntax-only -Wno-unused "$piece" \
        $(pkg-config --define-variable=prefix="$work/prefix" --cflags lfoundation)
done
