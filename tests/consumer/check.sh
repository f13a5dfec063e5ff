#!/bin/sh
# Installs the build tree into a private prefix, moves that, and builds against it as outside programs do: through
# find_package a program with names of its own, others with and without the library's signal handlers, and every C++
# block of the documents, through pkg-config the former. The blocks are run and must print what the documents say. A
# host project that adds the sources gets the library alone, in the form that it asks for.
# usage: check.sh BUILD-DIR SOURCE-DIR
set -eu
build=$1
source=$2
top=$source/../..
work=$(mktemp -d)
[ ! -e "$build/install_manifest.txt" ] || cp "$build/install_manifest.txt" "$work/manifest"
clean_up() {
    [ ! -e "$work/manifest" ] || cp "$work/manifest" "$build/install_manifest.txt"
    rm -rf "$work"
}
trap clean_up EXIT
trap 'exit 130' INT TERM

quietly() { "$@" >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }; }

# The entry and the units name the helper where it lies now, each in its way.
place="$work/a 100% \$place"
quietly cmake --install "$build" --prefix "$place" --strip
. "$build/identity.sh"
helper="libexec/$helper_name.app/Contents/MacOS/$helper_name"
[ -x "$place/$helper" ]
grep -qxF "Exec=\"$work/a 100%% \\\\\$place/$helper\"" "$place/etc/xdg/autostart/$helper_identifier.desktop"
grep -qxF "ExecStart=\"$work/a 100%% \$place/$helper\"" "$place/lib/systemd/user/$helper_identifier.service"
[ -z "$(find "$place" -name '*.cpp' ! -path '*/share/lfoundation/*')" ]
grep -rlF "$work" "$place" | grep -v "/$helper_identifier[^/]*\$" && exit 1
DESTDIR="$work/root" quietly cmake --install "$build" --prefix /usr
[ -e "$work/root/etc/xdg/autostart/$helper_identifier.desktop" ]
DESTDIR="$work/root" quietly cmake --build "$build" --target uninstall
[ -z "$(find "$work/root" ! -type d)" ]

mv "$place" "$work/prefix"
mkdir "$work/blocks"
python3 "$source/blocks.py" extract "$work/blocks" "$top/docs/tour.md"
quietly cmake -S "$source" -B "$work/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$work/prefix" \
    -DBLOCKS="$work/blocks" ${CXXFLAGS:+-DCMAKE_CXX_FLAGS="$CXXFLAGS"}
quietly cmake --build "$work/cmake"
for form in lfoundation static; do
    "$work/cmake/names-$form"
    [ "$("$work/cmake/signals-$form")" = "the program's" ]
    [ "$("$work/cmake/signals-threads-$form")" = "the library's" ]
    [ "$("$work/cmake/signals-none-$form")" = "the program's" ]
done
python3 "$source/blocks.py" run "$work/blocks" "$work/cmake" "$work/prefix" \
    "$build/examples/mainapp/$app_name.app/Contents/MacOS/$app_name"

PKG_CONFIG_PATH=$(dirname "$(find "$work/prefix" -name lfoundation.pc)")
export PKG_CONFIG_PATH
# shellcheck disable=SC2046
quietly ${CXX:-c++} -std=c++20 ${CXXFLAGS:-} "$source/names.cpp" -o "$work/names" \
    $(pkg-config --cflags --libs lfoundation)
LD_LIBRARY_PATH=$(pkg-config --variable=libdir lfoundation) "$work/names"

for form in STATIC SHARED; do
    quietly cmake -S "$source/host" -B "$work/host" -G Ninja -DLFOUNDATION="$top" \
        -DBUILD_SHARED_LIBS="$([ $form = STATIC ] || echo ON)" -DFORM=${form}_LIBRARY
done
