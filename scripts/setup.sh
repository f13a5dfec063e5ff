# Sourced by the scripts beside it: what a machine must have, where the build goes, and how it is built.
# shellcheck shell=bash

set -u
unset CDPATH
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
jobs=$(nproc)

say() { printf '== %s\n' "$*"; }
fail() { printf '%s: %s\n' "$(basename "$0")" "$*" >&2; exit 1; }

# The comment that a script begins with is its help.
for word in "$@"; do
    if [ "$word" = --help ] || [ "$word" = -h ]; then
        sed -n '2,/^[^#]/s/^# \{0,1\}//p' "$0"
        exit 0
    fi
done

# What the scripts need, by the name of the Debian package that brings it.
build_packages=(g++ cmake ninja-build libexpat1-dev)
demo_packages=("${build_packages[@]}" procps)
test_packages=("${build_packages[@]}" libgtest-dev pkg-config python3 tzdata zip unzip procps)
package_packages=("${build_packages[@]}" debhelper dpkg-dev lintian)
bench_packages=("${build_packages[@]}" pkg-config libfmt-dev libglib2.0-dev libsystemd-dev)

has_command() { command -v "$1" >/dev/null; }
has_header() {
    local compiler
    for compiler in "${CXX:-c++}" g++ clang++; do
        has_command "$compiler" || continue
        printf '#include <%s>\n' "$1" | "$compiler" -x c++ -fsyntax-only - 2>/dev/null
        return
    done
    return 1
}

# is_there PACKAGE: whether the machine has what the package would bring, from wherever it came.
is_there() {
    case $1 in
        g++) has_command "${CXX:-c++}" || has_command g++ || has_command clang++ ;;
        cmake) has_command cmake && printf '3.25\n%s\n' "$(cmake --version | sed -n '1s/.* //p')" | sort -VC ;;
        ninja-build) has_command ninja || has_command ninja-build ;;
        libexpat1-dev) has_header expat.h ;;
        libgtest-dev) has_header gtest/gtest.h ;;
        procps) has_command pgrep && has_command pkill ;;
        tzdata) [ -e /usr/share/zoneinfo/Europe/Berlin ] ;;
        libclang-rt-dev) has_command clang && compgen -G "$(clang -print-resource-dir)/lib/*/libclang_rt.fuzzer*" >/dev/null ;;
        libglib2.0-dev) has_command pkg-config && pkg-config --exists glib-2.0 ;;
        libfmt-dev) has_header fmt/core.h ;;
        libsystemd-dev) has_header systemd/sd-bus.h ;;
        *) has_command "$1" || [ "$(dpkg-query -W -f '${db:Status-Status}' "$1" 2>/dev/null)" = installed ] ;;
    esac
}

# install_packages PACKAGE...: installs those whose content the machine lacks.
install_packages() {
    local missing=() package as=() said
    for package in "$@"; do
        is_there "$package" || missing+=("$package")
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    has_command apt-get || fail "missing, by their names as Debian's packages, and no apt-get to install them: ${missing[*]}"
    if [ "$(id -u)" -ne 0 ]; then
        has_command sudo || fail "missing, and installing them needs root or sudo: ${missing[*]}"
        as=(sudo)
    fi
    say "installing ${missing[*]} (about a minute)"
    # A package list that cannot be read anew may still serve; what cannot be installed is told in one line.
    "${as[@]}" apt-get update -qq >/dev/null 2>&1
    said=$("${as[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" 2>&1) ||
        fail "could not install ${missing[*]} (no network?): $(grep -m 1 '^E:' <<<"$said" || tail -n 1 <<<"$said")"
}

# The files of the checkout, each ended by a zero byte, whether git is there or not.
sources_of_checkout() {
    git ls-files -coz --exclude-standard 2>/dev/null && return
    find . -name .git -prune -o -path './build*' -prune -o -type f -printf '%P\0'
}

# Build folders stand in the checkout, in $LFOUNDATION_BUILD_DIR when that is set, and in the user's cache when
# the checkout may not be written.
choose_build_root() {
    build_root=$root/build
    if [ -n "${LFOUNDATION_BUILD_DIR:-}" ]; then
        mkdir -p "$LFOUNDATION_BUILD_DIR" && build_root=$(cd "$LFOUNDATION_BUILD_DIR" && pwd) ||
            fail "cannot make the build folder '$LFOUNDATION_BUILD_DIR'"
    elif ! mkdir -p "$build_root" 2>/dev/null || [ ! -w "$build_root" ]; then
        build_root=${XDG_CACHE_HOME:-${HOME:?has no value}/.cache}/lfoundation/$(cksum <<<"$root" | cut -d ' ' -f 1)
        mkdir -p "$build_root" || fail "cannot make the build folder '$build_root'; LFOUNDATION_BUILD_DIR names another"
        say "the checkout is read-only; building in $build_root"
    fi
}

# expected SECONDS: how long work of so many processor seconds takes here, in words.
expected() { printf 'about %d min on %d processors' $((($1 / jobs + 59) / 60)) "$jobs"; }

# configure PRESET [OPTION...]: options are for cmake.
configure() {
    local preset=$1
    shift
    (cd "$root" && cmake --preset "$preset" -B "$build_root/$preset" \
        ${LFOUNDATION_WERROR:+-DLFOUNDATION_WERROR="$LFOUNDATION_WERROR"} "$@" >/dev/null) ||
        fail "cmake could not configure '$preset'"
}

# build PRESET SECONDS [TARGET...]: builds the targets (all when none is named) of the configured preset. A
# terminal sees the progress, a log file only how it ended. SECONDS: processor time of the first build.
build() {
    local folder=$build_root/$1 text="building ($1)" seconds=$2 targets=() target mark
    shift 2
    for target in "$@"; do targets+=(--target "$target"); done
    mark=$folder/.built-${1:-all}
    [ -e "$mark" ] || text+=", $(expected "$seconds")"
    say "$text"
    if [ -t 1 ]; then
        cmake --build "$folder" -j "$jobs" "${targets[@]}" || fail "the build failed"
    else
        cmake --build "$folder" -j "$jobs" "${targets[@]}" >"$folder/build.log" 2>&1 ||
            { sed -n '/^FAILED/,$p' "$folder/build.log" | head -n 100; fail "the build failed; all it said is in $folder/build.log"; }
        grep 'warning:' "$folder/build.log"
        tail -n 1 "$folder/build.log"
    fi
    touch "$mark"
}

choose_build_root
